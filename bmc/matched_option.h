// The option that a legacy boot request was matched to, kept in NVRAM as it was before the request changed it.
#pragma once

#include "bootopt/boot_option.h"

namespace bds {

// Stores the option's number and its Boot#### variable as it is now; nothing when it has no such variable yet.
void SaveMatchedBootOption(const BOOT_OPTION& option);

// Puts the variable back, if it still holds the option that was stored, and forgets the record. A record that cannot
// be put back now is kept for the next boot.
void RestoreMatchedBootOption();

}  // namespace bds
