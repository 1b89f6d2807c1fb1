// The name by which a device is recognised on later boots.
#pragma once

#include <span>

#include "bootopt/boot_option.h"

namespace bds {

// Writes the name and a NUL behind it into the buffer, of kNameCapacity characters; returns its length, 0: it has none.
// The name may hold NULs itself.
[[nodiscard]] UINTN BuildDeviceIdentityName(const BOOT_OPTION& option, std::span<CHAR16> buffer);

}  // namespace bds
