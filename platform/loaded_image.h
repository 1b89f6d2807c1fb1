// The loaded image protocol (UEFI 2.10, 9.1): where an image came from and what it was started with.
#pragma once

#include "platform/system_table.h"

inline constexpr UINT32 EFI_LOADED_IMAGE_PROTOCOL_REVISION = 0x1000;

struct EFI_LOADED_IMAGE_PROTOCOL {
  UINT32 Revision;
  EFI_HANDLE ParentHandle;
  EFI_SYSTEM_TABLE* SystemTable;
  EFI_HANDLE DeviceHandle;             // the device that the image was read from, or null
  EFI_DEVICE_PATH_PROTOCOL* FilePath;  // relative to DeviceHandle
  VOID* Reserved;
  UINT32 LoadOptionsSize;  // in bytes
  VOID* LoadOptions;
  VOID* ImageBase;
  UINT64 ImageSize;  // in bytes, as loaded
  EFI_MEMORY_TYPE ImageCodeType;
  EFI_MEMORY_TYPE ImageDataType;
  EFI_STATUS(EFIAPI* Unload)(EFI_HANDLE ImageHandle);  // null: the image cannot be unloaded
};
static_assert(offsetof(EFI_LOADED_IMAGE_PROTOCOL, DeviceHandle) == 24);
static_assert(offsetof(EFI_LOADED_IMAGE_PROTOCOL, LoadOptionsSize) == 48);
static_assert(offsetof(EFI_LOADED_IMAGE_PROTOCOL, ImageBase) == 64);
static_assert(offsetof(EFI_LOADED_IMAGE_PROTOCOL, ImageCodeType) == 80);
static_assert(offsetof(EFI_LOADED_IMAGE_PROTOCOL, Unload) == 88);
static_assert(sizeof(EFI_LOADED_IMAGE_PROTOCOL) == 96);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>{
    0x5B1B31A1, 0x9562, 0x11D2, {0x8E, 0x3F, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

// UEFI 2.10, 9.2: the interface is a device path, the full path that LoadImage was given.
inline constexpr EFI_GUID gEfiLoadedImageDevicePathProtocolGuid{
    0xBC62157E, 0x3E33, 0x4FEC, {0x99, 0x20, 0x2D, 0x3B, 0x36, 0xD7, 0x50, 0xDF}};
