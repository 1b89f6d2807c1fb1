// The device path utilities protocol (UEFI 2.10, 10.5). Paths that it returns are pool memory of the caller's.
#pragma once

#include "platform/device_path.h"

struct EFI_DEVICE_PATH_UTILITIES_PROTOCOL {
  UINTN(EFIAPI* GetDevicePathSize)(const EFI_DEVICE_PATH_PROTOCOL* DevicePath);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* DuplicateDevicePath)(const EFI_DEVICE_PATH_PROTOCOL* DevicePath);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* AppendDevicePath)(const EFI_DEVICE_PATH_PROTOCOL* Src1,
                                                      const EFI_DEVICE_PATH_PROTOCOL* Src2);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* AppendDeviceNode)(const EFI_DEVICE_PATH_PROTOCOL* DevicePath,
                                                      const EFI_DEVICE_PATH_PROTOCOL* DeviceNode);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* AppendDevicePathInstance)(const EFI_DEVICE_PATH_PROTOCOL* DevicePath,
                                                              const EFI_DEVICE_PATH_PROTOCOL* DevicePathInstance);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* GetNextDevicePathInstance)(EFI_DEVICE_PATH_PROTOCOL** DevicePathInstance,
                                                               UINTN* DevicePathInstanceSize);
  BOOLEAN(EFIAPI* IsDevicePathMultiInstance)(const EFI_DEVICE_PATH_PROTOCOL* DevicePath);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* CreateDeviceNode)(UINT8 NodeType, UINT8 NodeSubType, UINT16 NodeLength);
};
static_assert(sizeof(EFI_DEVICE_PATH_UTILITIES_PROTOCOL) == 64);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DEVICE_PATH_UTILITIES_PROTOCOL>{
    0x0379BE4E, 0xD706, 0x437D, {0xB0, 0x37, 0xED, 0xB8, 0x2F, 0xB7, 0x72, 0xA4}};
