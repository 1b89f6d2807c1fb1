// Serial ports (UEFI 2.10, 12.8).
#pragma once

#include "platform/uefi_base.h"

struct SERIAL_IO_MODE {
  UINT32 ControlMask;
  UINT32 Timeout;
  UINT64 BaudRate;
  UINT32 ReceiveFifoDepth;
  UINT32 DataBits;
  UINT32 Parity;
  UINT32 StopBits;
};
static_assert(sizeof(SERIAL_IO_MODE) == 32);

struct EFI_SERIAL_IO_PROTOCOL {
  UINT32 Revision;
  EFI_STATUS(EFIAPI* Reset)(EFI_SERIAL_IO_PROTOCOL* This);
  EFI_STATUS(EFIAPI* SetAttributes)
  (EFI_SERIAL_IO_PROTOCOL* This, UINT64 BaudRate, UINT32 ReceiveFifoDepth, UINT32 Timeout, UINT32 Parity,
   UINT8 DataBits, UINT32 StopBits);
  EFI_STATUS(EFIAPI* SetControl)(EFI_SERIAL_IO_PROTOCOL* This, UINT32 Control);
  EFI_STATUS(EFIAPI* GetControl)(EFI_SERIAL_IO_PROTOCOL* This, UINT32* Control);
  EFI_STATUS(EFIAPI* Write)(EFI_SERIAL_IO_PROTOCOL* This, UINTN* BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* Read)(EFI_SERIAL_IO_PROTOCOL* This, UINTN* BufferSize, VOID* Buffer);
  SERIAL_IO_MODE* Mode;
  const EFI_GUID* DeviceTypeGuid;
};
static_assert(sizeof(EFI_SERIAL_IO_PROTOCOL) == 72);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SERIAL_IO_PROTOCOL>{
    0xBB25CF6F, 0xF1D4, 0x11D2, {0x9A, 0x0C, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0xFD}};
