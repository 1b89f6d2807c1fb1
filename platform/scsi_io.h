// The SCSI I/O protocol (UEFI 2.10, 15.4): one SCSI device.
#pragma once

#include "platform/ext_scsi_pass_thru.h"

inline constexpr UINT8 EFI_SCSI_IO_TYPE_DISK = 0x00;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_TAPE = 0x01;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_PRINTER = 0x02;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_PROCESSOR = 0x03;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_WORM = 0x04;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_CDROM = 0x05;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_SCANNER = 0x06;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_OPTICAL = 0x07;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_MEDIUMCHANGER = 0x08;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_COMMUNICATION = 0x09;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_RAID = 0x0C;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_SES = 0x0D;
inline constexpr UINT8 EFI_SCSI_IO_TYPE_RBC = 0x0E;

// The packet has the members, values and layout of the pass-thru protocol's.
using EFI_SCSI_IO_SCSI_REQUEST_PACKET = EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET;

struct EFI_SCSI_IO_PROTOCOL {
  EFI_STATUS(EFIAPI* GetDeviceType)(EFI_SCSI_IO_PROTOCOL* This, UINT8* DeviceType);
  EFI_STATUS(EFIAPI* GetDeviceLocation)(EFI_SCSI_IO_PROTOCOL* This, UINT8** Target, UINT64* Lun);
  EFI_STATUS(EFIAPI* ResetBus)(EFI_SCSI_IO_PROTOCOL* This);
  EFI_STATUS(EFIAPI* ResetDevice)(EFI_SCSI_IO_PROTOCOL* This);
  EFI_STATUS(EFIAPI* ExecuteScsiCommand)
  (EFI_SCSI_IO_PROTOCOL* This, EFI_SCSI_IO_SCSI_REQUEST_PACKET* Packet, EFI_EVENT Event);
  UINT32 IoAlign;  // of the data buffers, a power of two; 0 and 1: no requirement
};
static_assert(offsetof(EFI_SCSI_IO_PROTOCOL, ExecuteScsiCommand) == 32);
static_assert(offsetof(EFI_SCSI_IO_PROTOCOL, IoAlign) == 40);
static_assert(sizeof(EFI_SCSI_IO_PROTOCOL) == 48);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SCSI_IO_PROTOCOL>{
    0x932F47E6, 0x2362, 0x4002, {0x80, 0x3E, 0x3C, 0xD5, 0x4B, 0x13, 0x8F, 0x85}};
