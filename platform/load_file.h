// The load file protocols (UEFI 2.10, 13.1 and 13.2): devices that hand out a whole file, such as network adapters.
#pragma once

#include "platform/device_path.h"

// Called with a null Buffer or too small a size, LoadFile answers EFI_BUFFER_TOO_SMALL and the size needed.
struct EFI_LOAD_FILE_PROTOCOL {
  EFI_STATUS(EFIAPI* LoadFile)
  (EFI_LOAD_FILE_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* FilePath, BOOLEAN BootPolicy, UINTN* BufferSize,
   VOID* Buffer);
};
static_assert(sizeof(EFI_LOAD_FILE_PROTOCOL) == 8);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_LOAD_FILE_PROTOCOL>{
    0x56EC3091, 0x954C, 0x11D2, {0x8E, 0x3F, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

// The same call for files that are not boot options; BootPolicy is always FALSE.
struct EFI_LOAD_FILE2_PROTOCOL {
  EFI_STATUS(EFIAPI* LoadFile)
  (EFI_LOAD_FILE2_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* FilePath, BOOLEAN BootPolicy, UINTN* BufferSize,
   VOID* Buffer);
};
static_assert(sizeof(EFI_LOAD_FILE2_PROTOCOL) == 8);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_LOAD_FILE2_PROTOCOL>{
    0x4006C0C1, 0xFCB3, 0x403E, {0x99, 0x6D, 0x4A, 0x6C, 0x87, 0x24, 0xE0, 0x6D}};
