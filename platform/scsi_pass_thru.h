// The older SCSI pass-thru protocol (EFI 1.10, chapter 13): targets are plain numbers, one buffer per command.
#pragma once

#include "platform/device_path.h"

inline constexpr UINT32 EFI_SCSI_PASS_THRU_ATTRIBUTES_PHYSICAL = 0x0001;
inline constexpr UINT32 EFI_SCSI_PASS_THRU_ATTRIBUTES_LOGICAL = 0x0002;
inline constexpr UINT32 EFI_SCSI_PASS_THRU_ATTRIBUTES_NONBLOCKIO = 0x0004;

struct EFI_SCSI_PASS_THRU_MODE {
  CHAR16* ControllerName;
  CHAR16* ChannelName;
  UINT32 AdapterId;
  UINT32 Attributes;
  UINT32 IoAlign;  // of the data buffer, a power of two; 0 and 1: no requirement
};
static_assert(offsetof(EFI_SCSI_PASS_THRU_MODE, AdapterId) == 16);
static_assert(sizeof(EFI_SCSI_PASS_THRU_MODE) == 32);

inline constexpr UINT8 EFI_SCSI_DATA_IN = 0;
inline constexpr UINT8 EFI_SCSI_DATA_OUT = 1;

// Host adapter and target statuses have the values of the extended protocol.
struct EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET {
  UINT64 Timeout;  // in units of 100 ns; 0: without end
  VOID* DataBuffer;
  VOID* SenseData;
  VOID* Cdb;
  UINT32 TransferLength;  // in bytes; out: what was moved
  UINT8 CdbLength;
  UINT8 DataDirection;
  UINT8 HostAdapterStatus;
  UINT8 TargetStatus;
  UINT8 SenseDataLength;  // in bytes; out: what was written
};
static_assert(offsetof(EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET, TransferLength) == 32);
static_assert(offsetof(EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET, SenseDataLength) == 40);
static_assert(sizeof(EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET) == 48);

// GetNextDevice begins with target 0xFFFFFFFF.
struct EFI_SCSI_PASS_THRU_PROTOCOL {
  EFI_SCSI_PASS_THRU_MODE* Mode;
  EFI_STATUS(EFIAPI* PassThru)
  (EFI_SCSI_PASS_THRU_PROTOCOL* This, UINT32 Target, UINT64 Lun, EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* Packet,
   EFI_EVENT Event);
  EFI_STATUS(EFIAPI* GetNextDevice)(EFI_SCSI_PASS_THRU_PROTOCOL* This, UINT32* Target, UINT64* Lun);
  EFI_STATUS(EFIAPI* BuildDevicePath)
  (EFI_SCSI_PASS_THRU_PROTOCOL* This, UINT32 Target, UINT64 Lun, EFI_DEVICE_PATH_PROTOCOL** DevicePath);
  EFI_STATUS(EFIAPI* GetTargetLun)
  (EFI_SCSI_PASS_THRU_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* DevicePath, UINT32* Target, UINT64* Lun);
  EFI_STATUS(EFIAPI* ResetChannel)(EFI_SCSI_PASS_THRU_PROTOCOL* This);
  EFI_STATUS(EFIAPI* ResetTarget)(EFI_SCSI_PASS_THRU_PROTOCOL* This, UINT32 Target, UINT64 Lun);
};
static_assert(offsetof(EFI_SCSI_PASS_THRU_PROTOCOL, PassThru) == 8);
static_assert(offsetof(EFI_SCSI_PASS_THRU_PROTOCOL, GetTargetLun) == 32);
static_assert(sizeof(EFI_SCSI_PASS_THRU_PROTOCOL) == 56);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SCSI_PASS_THRU_PROTOCOL>{
    0xA59E8FCF, 0xBDA0, 0x43BB, {0x90, 0xB1, 0xD3, 0x73, 0x2E, 0xCA, 0xA8, 0x77}};
