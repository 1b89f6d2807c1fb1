// The words that device path nodes contribute to an option's name.
#pragma once

#include <span>

#include "support/device_path.h"

namespace bds {

// The words of the nodes of one path ("USB Hard Drive"), as far as their strings can be read, with a NUL and cut to
// fit; returns their length, 0: there are none.
UINTN BuildNodeWords(DevicePathWalker walker, std::span<CHAR16> buffer);

}  // namespace bds
