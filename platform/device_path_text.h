// Device paths to and from text (UEFI 2.10, 10.6).
#pragma once

#include "platform/device_path.h"

struct EFI_DEVICE_PATH_TO_TEXT_PROTOCOL {
  CHAR16*(EFIAPI* ConvertDeviceNodeToText)
  (const EFI_DEVICE_PATH_PROTOCOL* DeviceNode, BOOLEAN DisplayOnly, BOOLEAN AllowShortcuts);
  CHAR16*(EFIAPI* ConvertDevicePathToText)
  (const EFI_DEVICE_PATH_PROTOCOL* DevicePath, BOOLEAN DisplayOnly, BOOLEAN AllowShortcuts);
};
static_assert(offsetof(EFI_DEVICE_PATH_TO_TEXT_PROTOCOL, ConvertDevicePathToText) == 8);
static_assert(sizeof(EFI_DEVICE_PATH_TO_TEXT_PROTOCOL) == 16);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL>{
    0x8B843E20, 0x8132, 0x4852, {0x90, 0xCC, 0x55, 0x1A, 0x4E, 0x4A, 0x7F, 0x1C}};

struct EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL {
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* ConvertTextToDeviceNode)(const CHAR16* TextDeviceNode);
  EFI_DEVICE_PATH_PROTOCOL*(EFIAPI* ConvertTextToDevicePath)(const CHAR16* TextDevicePath);
};
static_assert(offsetof(EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL, ConvertTextToDevicePath) == 8);
static_assert(sizeof(EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL) == 16);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL>{
    0x05C99A21, 0xC70F, 0x4AD2, {0x8A, 0x5F, 0x35, 0xDF, 0x33, 0x43, 0xF5, 0x1E}};
