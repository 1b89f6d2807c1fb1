// The name of the controller behind an option.
#pragma once

#include <span>

#include "bootopt/boot_option.h"

namespace bds {

// The name that drivers give the network interface or controller, IP version and PCI location in front of it, with a
// NUL and cut to fit; returns its length, 0: it has none.
UINTN BuildNetworkName(const BOOT_OPTION& option, std::span<CHAR16> buffer);

}  // namespace bds
