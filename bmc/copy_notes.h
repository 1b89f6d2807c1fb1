// What a boot that saves the boot variables to the BMC, or restores them, leaves in NVRAM for the next one: notes that
// are there or not.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// The safe reboot was made, and no boot since has found its copies on the BMC.
inline constexpr CHAR16 kSafeRebootMade[] = u"BmcSafeRebootMade";
// The file of the order was begun and could not be finished, so that it may be empty or not there beside its options.
inline constexpr CHAR16 kOrderFileUnfinished[] = u"BmcOrderFileUnfinished";
// NVRAM refused an option of a restore, which is tried once more.
inline constexpr CHAR16 kOptionRefused[] = u"BmcOptionRefused";

// EFI_SUCCESS when it is there, EFI_NOT_FOUND when it is not; otherwise nothing can be said.
[[nodiscard]] EFI_STATUS ReadNote(const CHAR16* note);
// True when the note was not there and is now, which is read back.
bool LeaveNote(const CHAR16* note);
void RemoveNote(const CHAR16* note);

}  // namespace bds
