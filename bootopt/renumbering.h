// Options that were numbered anew are brought into their new variables, one after the other, before the list is saved.
#pragma once

#include "bootopt/boot_option.h"
#include "support/byte_reader.h"
#include "support/number_set.h"

namespace bds {

// True when the option is written by SaveBootOptions: it has a number, and a path of a length that an image can say.
[[nodiscard]] bool IsSaved(const BOOT_OPTION& option);

// True when an option is to be saved under another number than it was loaded from.
[[nodiscard]] bool AnyOptionMoves();

// Writes each such option into its new variable once no option needs what stands there; options that wait for each
// other get free through a spare number. BootOrder lists all old and new numbers meanwhile, the new ones first, so that
// every option is listed and stored whenever the power goes. An option that cannot be moved, and each that needs the
// place of one, gets its old number back, which becomes one of `kept`: nothing may be written under it. The list is in
// the order of priorities; the room holds the largest image.
void MoveRenumberedOptions(std::span<std::byte> room, NumberSet& kept);

}  // namespace bds
