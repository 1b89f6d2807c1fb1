// The FlexBootOrder protocol: the boot policy that is in force on this boot. Its interface is the policy record itself.
#pragma once

#include "platform/uefi_base.h"

struct FLEXBOOT_ORDER_HEADER;

template <>
inline constexpr EFI_GUID ProtocolGuid<FLEXBOOT_ORDER_HEADER>{
    0xF3B23900, 0xE57B, 0xE56E, {0xFE, 0xE8, 0xE3, 0xE7, 0xC7, 0xDC, 0xDF, 0xBD}};
