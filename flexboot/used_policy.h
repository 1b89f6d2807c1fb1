// A policy for one boot that was used on a boot on which the BMC could not be told so. NVRAM keeps a note of it, so
// that the next boots do not use it again.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// The note, a POLICY_DIGEST; with the GUID of the policy's other variables.
inline constexpr CHAR16 kUsedPolicyName[] = u"OneTimePolicyUsed";

// Tells texts of policies apart, as the note does.
struct POLICY_DIGEST {
  UINT32 Length = 0;
  UINT32 Crc = 0;  // CRC32, as the boot service makes it
};

// Remembers the text as this boot's policy for one boot. True when it is the one that the note is of: it was used.
[[nodiscard]] bool WasUsedBefore(const char* text);

// Writes the note of this boot's policy for one boot. A store that does not take it is logged: the policy will then be
// used once more.
void NoteUsedPolicy();
// Deletes the note, if there is one.
void ForgetUsedPolicy();

}  // namespace bds
