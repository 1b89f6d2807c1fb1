// The disk I/O protocol (UEFI 2.10, 13.7): byte-wise access laid over a block device.
#pragma once

#include "platform/uefi_base.h"

inline constexpr UINT64 EFI_DISK_IO_PROTOCOL_REVISION = 0x00010000;

// Offset and BufferSize are in bytes and need no alignment.
struct EFI_DISK_IO_PROTOCOL {
  UINT64 Revision;
  EFI_STATUS(EFIAPI* ReadDisk)
  (EFI_DISK_IO_PROTOCOL* This, UINT32 MediaId, UINT64 Offset, UINTN BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* WriteDisk)
  (EFI_DISK_IO_PROTOCOL* This, UINT32 MediaId, UINT64 Offset, UINTN BufferSize, const VOID* Buffer);
};
static_assert(offsetof(EFI_DISK_IO_PROTOCOL, ReadDisk) == 8);
static_assert(sizeof(EFI_DISK_IO_PROTOCOL) == 24);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DISK_IO_PROTOCOL>{
    0xCE345171, 0xBA0B, 0x11D2, {0x8E, 0x4F, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};
