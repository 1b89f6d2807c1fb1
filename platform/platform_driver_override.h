// The platform driver override protocol (UEFI 2.10, 11.3): the platform's own order of drivers for a controller.
#pragma once

#include "platform/device_path.h"

// The two Get members are called with the last answer (null at first) and hand out the next one, until
// EFI_NOT_FOUND.
struct EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL {
  EFI_STATUS(EFIAPI* GetDriver)
  (EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE* DriverImageHandle);
  EFI_STATUS(EFIAPI* GetDriverPath)
  (EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL* This, EFI_HANDLE ControllerHandle,
   EFI_DEVICE_PATH_PROTOCOL** DriverImagePath);
  EFI_STATUS(EFIAPI* DriverLoaded)
  (EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_DEVICE_PATH_PROTOCOL* DriverImagePath,
   EFI_HANDLE DriverImageHandle);
};
static_assert(sizeof(EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL) == 24);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL>{
    0x6B30C738, 0xA391, 0x11D4, {0x9A, 0x3B, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};
