// The default boot order of the setup front end. Only the front end reads the two variables.
#pragma once

#include "bootopt/boot_lists.h"

namespace bds {

// The legacy device order (bootopt/legacy_dev_order.h), every device enabled.
inline constexpr CHAR16 kDefaultLegacyDevOrderName[] = u"DefaultLegacyDevOrder";
inline constexpr EFI_GUID kDefaultLegacyDevOrderGuid{
    0x3C4EAD08, 0x45AE, 0x4315, {0x8D, 0x15, 0xA6, 0x0E, 0xAA, 0x8C, 0xAF, 0x69}};

// UINT16 option numbers.
inline constexpr CHAR16 kDefaultBootOrderName[] = u"DefaultBootOrder";
inline constexpr EFI_GUID kDefaultBootOrderGuid{
    0x45CF35F6, 0x0D6E, 0x4D04, {0x85, 0x6A, 0x03, 0x70, 0xA5, 0xB1, 0x6F, 0x53}};

// -1 when a's device type ranks before b's, 1 when behind it, 0 when both rank the same.
[[nodiscard]] INTN CompareDefaultIndex(const BOOT_OPTION& a, const BOOT_OPTION& b);

}  // namespace bds
