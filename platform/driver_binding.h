// The driver binding protocol (UEFI 2.10, 11.1): how a driver is asked about, started on and stopped on a controller.
#pragma once

#include "platform/device_path.h"

struct EFI_DRIVER_BINDING_PROTOCOL {
  EFI_STATUS(EFIAPI* Supported)
  (EFI_DRIVER_BINDING_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_DEVICE_PATH_PROTOCOL* RemainingDevicePath);
  EFI_STATUS(EFIAPI* Start)
  (EFI_DRIVER_BINDING_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_DEVICE_PATH_PROTOCOL* RemainingDevicePath);
  EFI_STATUS(EFIAPI* Stop)
  (EFI_DRIVER_BINDING_PROTOCOL* This, EFI_HANDLE ControllerHandle, UINTN NumberOfChildren,
   EFI_HANDLE* ChildHandleBuffer);
  UINT32 Version;  // higher is tried first; 0x10 to 0xFFFFFFEF for drivers that are not the platform's
  EFI_HANDLE ImageHandle;
  EFI_HANDLE DriverBindingHandle;
};
static_assert(offsetof(EFI_DRIVER_BINDING_PROTOCOL, Version) == 24);
static_assert(offsetof(EFI_DRIVER_BINDING_PROTOCOL, ImageHandle) == 32);
static_assert(sizeof(EFI_DRIVER_BINDING_PROTOCOL) == 48);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>{
    0x18A031AB, 0xB443, 0x4D1A, {0xA5, 0xC0, 0x0C, 0x09, 0x26, 0x1E, 0x9F, 0x71}};
