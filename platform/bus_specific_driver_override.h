// The bus-specific driver override protocol (UEFI 2.10, 11.4): drivers that a controller brings along, such as those
// in its option ROM. It lies on the controller's handle.
#pragma once

#include "platform/uefi_base.h"

struct EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL {
  // Called with the last answer (null at first), hands out the next driver, until EFI_NOT_FOUND.
  EFI_STATUS(EFIAPI* GetDriver)
  (EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL* This, EFI_HANDLE* DriverImageHandle);
};
static_assert(sizeof(EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL) == 8);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL>{
    0x3BC1B285, 0x8A15, 0x4A82, {0xAA, 0xBF, 0x4D, 0x7D, 0x13, 0xFB, 0x32, 0x65}};
