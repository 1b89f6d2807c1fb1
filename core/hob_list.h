// Walking the hand-off block list that the memory initialisation phase left.
#pragma once

#include "platform/hob.h"
#include "support/byte_reader.h"

namespace bds {

// The boot mode in the list's first block; false when there is no list or it does not begin with the hand-off block.
[[nodiscard]] bool ReadBootMode(const void* hobList, EFI_BOOT_MODE& mode);

// The data of the first GUID extension block of this name. False when there is none; a block that is too short for its
// header, or a list without an end, ends the search.
[[nodiscard]] bool FindGuidHob(const void* hobList, const EFI_GUID& name, Bytes& data);

}  // namespace bds
