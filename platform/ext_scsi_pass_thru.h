// The extended SCSI pass-thru protocol (UEFI 2.10, 15.7): raw SCSI commands to the targets of one channel.
#pragma once

#include "platform/device_path.h"

inline constexpr UINTN TARGET_MAX_BYTES = 0x10;

inline constexpr UINT32 EFI_EXT_SCSI_PASS_THRU_ATTRIBUTES_PHYSICAL = 0x0001;
inline constexpr UINT32 EFI_EXT_SCSI_PASS_THRU_ATTRIBUTES_LOGICAL = 0x0002;
inline constexpr UINT32 EFI_EXT_SCSI_PASS_THRU_ATTRIBUTES_NONBLOCKIO = 0x0004;

struct EFI_EXT_SCSI_PASS_THRU_MODE {
  UINT32 AdapterId;
  UINT32 Attributes;
  UINT32 IoAlign;  // of the data buffers, a power of two; 0 and 1: no requirement
};
static_assert(sizeof(EFI_EXT_SCSI_PASS_THRU_MODE) == 12);

inline constexpr UINT8 EFI_EXT_SCSI_DATA_DIRECTION_READ = 0;
inline constexpr UINT8 EFI_EXT_SCSI_DATA_DIRECTION_WRITE = 1;
inline constexpr UINT8 EFI_EXT_SCSI_DATA_DIRECTION_BIDIRECTIONAL = 2;

inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_OK = 0x00;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_TIMEOUT_COMMAND = 0x09;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_TIMEOUT = 0x0B;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_MESSAGE_REJECT = 0x0D;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_BUS_RESET = 0x0E;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_PARITY_ERROR = 0x0F;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_REQUEST_SENSE_FAILED = 0x10;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_SELECTION_TIMEOUT = 0x11;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_DATA_OVERRUN_UNDERRUN = 0x12;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_BUS_FREE = 0x13;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_PHASE_ERROR = 0x14;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_HOST_ADAPTER_OTHER = 0x7F;

inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_GOOD = 0x00;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_CHECK_CONDITION = 0x02;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_CONDITION_MET = 0x04;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_BUSY = 0x08;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_INTERMEDIATE = 0x10;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_INTERMEDIATE_CONDITION_MET = 0x14;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_RESERVATION_CONFLICT = 0x18;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_TASK_SET_FULL = 0x28;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_ACA_ACTIVE = 0x30;
inline constexpr UINT8 EFI_EXT_SCSI_STATUS_TARGET_TASK_ABORTED = 0x40;

struct EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET {
  UINT64 Timeout;  // in units of 100 ns; 0: without end
  VOID* InDataBuffer;
  VOID* OutDataBuffer;
  VOID* SenseData;
  VOID* Cdb;
  UINT32 InTransferLength;   // in bytes; out: what was moved
  UINT32 OutTransferLength;  // in bytes; out: what was moved
  UINT8 CdbLength;
  UINT8 DataDirection;
  UINT8 HostAdapterStatus;
  UINT8 TargetStatus;
  UINT8 SenseDataLength;  // in bytes; out: what was written
};
static_assert(offsetof(EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET, Cdb) == 32);
static_assert(offsetof(EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET, CdbLength) == 48);
static_assert(offsetof(EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET, SenseDataLength) == 52);
static_assert(sizeof(EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET) == 56);

// A Target is an array of TARGET_MAX_BYTES bytes; the searches begin with one filled with 0xFF.
struct EFI_EXT_SCSI_PASS_THRU_PROTOCOL {
  EFI_EXT_SCSI_PASS_THRU_MODE* Mode;
  EFI_STATUS(EFIAPI* PassThru)
  (EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This, UINT8* Target, UINT64 Lun, EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* Packet,
   EFI_EVENT Event);
  EFI_STATUS(EFIAPI* GetNextTargetLun)(EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This, UINT8** Target, UINT64* Lun);
  EFI_STATUS(EFIAPI* BuildDevicePath)
  (EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This, UINT8* Target, UINT64 Lun, EFI_DEVICE_PATH_PROTOCOL** DevicePath);
  EFI_STATUS(EFIAPI* GetTargetLun)
  (EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This, EFI_DEVICE_PATH_PROTOCOL* DevicePath, UINT8** Target, UINT64* Lun);
  EFI_STATUS(EFIAPI* ResetChannel)(EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This);
  EFI_STATUS(EFIAPI* ResetTargetLun)(EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This, UINT8* Target, UINT64 Lun);
  EFI_STATUS(EFIAPI* GetNextTarget)(EFI_EXT_SCSI_PASS_THRU_PROTOCOL* This, UINT8** Target);
};
static_assert(offsetof(EFI_EXT_SCSI_PASS_THRU_PROTOCOL, PassThru) == 8);
static_assert(offsetof(EFI_EXT_SCSI_PASS_THRU_PROTOCOL, GetTargetLun) == 32);
static_assert(sizeof(EFI_EXT_SCSI_PASS_THRU_PROTOCOL) == 64);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>{
    0x143B7632, 0xB81B, 0x4CB7, {0xAB, 0xD3, 0xB6, 0x25, 0xA5, 0xB9, 0xBF, 0xFE}};
