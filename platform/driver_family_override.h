// The driver family override protocol (UEFI 2.10, 11.7): a version by which drivers of one family are ordered.
#pragma once

#include "platform/uefi_base.h"

struct EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL {
  UINT32(EFIAPI* GetVersion)(EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL* This);  // higher is tried first
};
static_assert(sizeof(EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL) == 8);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL>{
    0xB1EE129E, 0xDA36, 0x4181, {0x91, 0xF8, 0x04, 0xA4, 0x92, 0x37, 0x66, 0xA7}};
