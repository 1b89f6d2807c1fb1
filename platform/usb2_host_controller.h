// The USB 2 host controller protocol (UEFI 2.10, 17.1): transfers to any device on one controller, and the ports of
// its root hub.
#pragma once

#include "platform/usb_io.h"

inline constexpr UINT8 EFI_USB_SPEED_FULL = 0;
inline constexpr UINT8 EFI_USB_SPEED_LOW = 1;
inline constexpr UINT8 EFI_USB_SPEED_HIGH = 2;
inline constexpr UINT8 EFI_USB_SPEED_SUPER = 3;

inline constexpr UINT16 EFI_USB_HC_RESET_GLOBAL = 0x1;
inline constexpr UINT16 EFI_USB_HC_RESET_HOST_CONTROLLER = 0x2;
inline constexpr UINT16 EFI_USB_HC_RESET_GLOBAL_WITH_DEBUG = 0x4;
inline constexpr UINT16 EFI_USB_HC_RESET_HOST_WITH_DEBUG = 0x8;

enum EFI_USB_HC_STATE : UINT32 {
  EfiUsbHcStateHalt,
  EfiUsbHcStateOperational,
  EfiUsbHcStateSuspend,
  EfiUsbHcStateMaximum,
};

struct EFI_USB2_HC_TRANSACTION_TRANSLATOR {
  UINT8 TranslatorHubAddress;
  UINT8 TranslatorPortNumber;
};
static_assert(sizeof(EFI_USB2_HC_TRANSACTION_TRANSLATOR) == 2);

inline constexpr UINT16 USB_PORT_STAT_CONNECTION = 0x0001;
inline constexpr UINT16 USB_PORT_STAT_ENABLE = 0x0002;
inline constexpr UINT16 USB_PORT_STAT_SUSPEND = 0x0004;
inline constexpr UINT16 USB_PORT_STAT_OVERCURRENT = 0x0008;
inline constexpr UINT16 USB_PORT_STAT_RESET = 0x0010;
inline constexpr UINT16 USB_PORT_STAT_POWER = 0x0100;
inline constexpr UINT16 USB_PORT_STAT_LOW_SPEED = 0x0200;
inline constexpr UINT16 USB_PORT_STAT_HIGH_SPEED = 0x0400;
inline constexpr UINT16 USB_PORT_STAT_SUPER_SPEED = 0x0800;
inline constexpr UINT16 USB_PORT_STAT_OWNER = 0x2000;

inline constexpr UINT16 USB_PORT_STAT_C_CONNECTION = 0x0001;
inline constexpr UINT16 USB_PORT_STAT_C_ENABLE = 0x0002;
inline constexpr UINT16 USB_PORT_STAT_C_SUSPEND = 0x0004;
inline constexpr UINT16 USB_PORT_STAT_C_OVERCURRENT = 0x0008;
inline constexpr UINT16 USB_PORT_STAT_C_RESET = 0x0010;

struct EFI_USB_PORT_STATUS {
  UINT16 PortStatus;
  UINT16 PortChangeStatus;
};
static_assert(sizeof(EFI_USB_PORT_STATUS) == 4);

enum EFI_USB_PORT_FEATURE : UINT32 {
  EfiUsbPortEnable = 1,
  EfiUsbPortSuspend = 2,
  EfiUsbPortReset = 4,
  EfiUsbPortPower = 8,
  EfiUsbPortOwner = 13,
  EfiUsbPortConnectChange = 16,
  EfiUsbPortEnableChange = 17,
  EfiUsbPortSuspendChange = 18,
  EfiUsbPortOverCurrentChange = 19,
  EfiUsbPortResetChange = 20,
};

inline constexpr UINTN EFI_USB_MAX_BULK_BUFFER_NUM = 10;
inline constexpr UINTN EFI_USB_MAX_ISO_BUFFER_NUM = 7;
inline constexpr UINTN EFI_USB_MAX_ISO_BUFFER_NUM1 = 2;

// Timeouts and polling intervals are in milliseconds.
struct EFI_USB2_HC_PROTOCOL {
  EFI_STATUS(EFIAPI* GetCapability)
  (EFI_USB2_HC_PROTOCOL* This, UINT8* MaxSpeed, UINT8* PortNumber, UINT8* Is64BitCapable);
  EFI_STATUS(EFIAPI* Reset)(EFI_USB2_HC_PROTOCOL* This, UINT16 Attributes);
  EFI_STATUS(EFIAPI* GetState)(EFI_USB2_HC_PROTOCOL* This, EFI_USB_HC_STATE* State);
  EFI_STATUS(EFIAPI* SetState)(EFI_USB2_HC_PROTOCOL* This, EFI_USB_HC_STATE State);
  EFI_STATUS(EFIAPI* ControlTransfer)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 DeviceAddress, UINT8 DeviceSpeed, UINTN MaximumPacketLength,
   EFI_USB_DEVICE_REQUEST* Request, EFI_USB_DATA_DIRECTION TransferDirection, VOID* Data, UINTN* DataLength,
   UINTN TimeOut, EFI_USB2_HC_TRANSACTION_TRANSLATOR* Translator, UINT32* TransferResult);
  EFI_STATUS(EFIAPI* BulkTransfer)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 DeviceAddress, UINT8 EndPointAddress, UINT8 DeviceSpeed, UINTN MaximumPacketLength,
   UINT8 DataBuffersNumber, VOID* Data[EFI_USB_MAX_BULK_BUFFER_NUM], UINTN* DataLength, UINT8* DataToggle,
   UINTN TimeOut, EFI_USB2_HC_TRANSACTION_TRANSLATOR* Translator, UINT32* TransferResult);
  EFI_STATUS(EFIAPI* AsyncInterruptTransfer)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 DeviceAddress, UINT8 EndPointAddress, UINT8 DeviceSpeed, UINTN MaximumPacketLength,
   BOOLEAN IsNewTransfer, UINT8* DataToggle, UINTN PollingInterval, UINTN DataLength,
   EFI_USB2_HC_TRANSACTION_TRANSLATOR* Translator, EFI_ASYNC_USB_TRANSFER_CALLBACK CallBackFunction, VOID* Context);
  EFI_STATUS(EFIAPI* SyncInterruptTransfer)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 DeviceAddress, UINT8 EndPointAddress, UINT8 DeviceSpeed, UINTN MaximumPacketLength,
   VOID* Data, UINTN* DataLength, UINT8* DataToggle, UINTN TimeOut, EFI_USB2_HC_TRANSACTION_TRANSLATOR* Translator,
   UINT32* TransferResult);
  EFI_STATUS(EFIAPI* IsochronousTransfer)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 DeviceAddress, UINT8 EndPointAddress, UINT8 DeviceSpeed, UINTN MaximumPacketLength,
   UINT8 DataBuffersNumber, VOID* Data[EFI_USB_MAX_ISO_BUFFER_NUM], UINTN DataLength,
   EFI_USB2_HC_TRANSACTION_TRANSLATOR* Translator, UINT32* TransferResult);
  EFI_STATUS(EFIAPI* AsyncIsochronousTransfer)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 DeviceAddress, UINT8 EndPointAddress, UINT8 DeviceSpeed, UINTN MaximumPacketLength,
   UINT8 DataBuffersNumber, VOID* Data[EFI_USB_MAX_ISO_BUFFER_NUM], UINTN DataLength,
   EFI_USB2_HC_TRANSACTION_TRANSLATOR* Translator, EFI_ASYNC_USB_TRANSFER_CALLBACK IsochronousCallBack, VOID* Context);
  EFI_STATUS(EFIAPI* GetRootHubPortStatus)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 PortNumber, EFI_USB_PORT_STATUS* PortStatus);
  EFI_STATUS(EFIAPI* SetRootHubPortFeature)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 PortNumber, EFI_USB_PORT_FEATURE PortFeature);
  EFI_STATUS(EFIAPI* ClearRootHubPortFeature)
  (EFI_USB2_HC_PROTOCOL* This, UINT8 PortNumber, EFI_USB_PORT_FEATURE PortFeature);
  UINT16 MajorRevision;  // of the USB standard that the controller follows, in BCD
  UINT16 MinorRevision;
};
static_assert(offsetof(EFI_USB2_HC_PROTOCOL, ControlTransfer) == 32);
static_assert(offsetof(EFI_USB2_HC_PROTOCOL, SyncInterruptTransfer) == 56);
static_assert(offsetof(EFI_USB2_HC_PROTOCOL, GetRootHubPortStatus) == 80);
static_assert(offsetof(EFI_USB2_HC_PROTOCOL, MajorRevision) == 104);
static_assert(sizeof(EFI_USB2_HC_PROTOCOL) == 112);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_USB2_HC_PROTOCOL>{
    0x3E745226, 0x9818, 0x45B6, {0xA2, 0xAC, 0xD7, 0xCD, 0x0E, 0x8B, 0xA2, 0xBC}};
