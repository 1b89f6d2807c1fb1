// The Description of an option that the driver makes: what the boot menu shows.
#pragma once

#include "bootopt/boot_option.h"

namespace bds {

inline constexpr UINTN kNameCapacity = 1024;  // characters of a name buffer

// Gives the option a new Description; returns its length in characters.
UINTN BuildBootOptionName(BOOT_OPTION& option);

}  // namespace bds
