// The firmware's USB support: brings legacy USB devices into the BBS table on request.
#pragma once

#include "platform/uefi_base.h"

struct USB_SUPPORT_PROTOCOL {
  VOID* Reserved1;
  VOID* Reserved2;
  VOID* Reserved3;
  VOID* Reserved4;
  VOID* Reserved5;
  EFI_STATUS(EFIAPI* UpdateBbsDevices)();
};
static_assert(offsetof(USB_SUPPORT_PROTOCOL, UpdateBbsDevices) == 40);

template <>
inline constexpr EFI_GUID ProtocolGuid<USB_SUPPORT_PROTOCOL>{
    0x2AD8E2D2, 0x2E91, 0x4CD1, {0x95, 0xF5, 0xE7, 0x8F, 0xE5, 0xEB, 0xE3, 0x16}};
