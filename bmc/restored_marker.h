// The variable that says the boot variables were restored from the BMC already.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline constexpr CHAR16 kBootOptionRestoredName[] = u"BootOptionRestored";  // 2 bytes, 01 00
inline constexpr EFI_GUID kBootOptionRestoredGuid{
    0x9DAE27E6, 0x9CC9, 0x4972, {0xBC, 0xDB, 0x82, 0x45, 0x73, 0xA2, 0xC2, 0xF6}};

}  // namespace bds
