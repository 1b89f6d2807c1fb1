// What the numbers of a PCI function's configuration header mean (PCI Code and ID Assignment 1.15).
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline constexpr const char* kUndefinedName = "UNDEFINED";

// Each answers kUndefinedName for a code that its table does not hold.
[[nodiscard]] const char* PciClassName(UINT8 classCode);
[[nodiscard]] const char* PciSubClassName(UINT8 classCode, UINT8 subClass);
[[nodiscard]] const char* PciInterfaceName(UINT8 classCode, UINT8 subClass, UINT8 interface);
// Null for a vendor without a name.
[[nodiscard]] const char* PciVendorName(UINT16 vendorId);

}  // namespace bds
