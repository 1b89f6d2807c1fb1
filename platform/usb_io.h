// The USB I/O protocol (UEFI 2.10, 17.2.4): one interface of a USB device; with the descriptors and requests of
// USB 2.0, chapter 9.
#pragma once

#include "platform/uefi_base.h"

#pragma pack(push, 1)

struct EFI_USB_DEVICE_REQUEST {
  UINT8 RequestType;
  UINT8 Request;
  UINT16 Value;
  UINT16 Index;
  UINT16 Length;
};
static_assert(sizeof(EFI_USB_DEVICE_REQUEST) == 8);

struct EFI_USB_DEVICE_DESCRIPTOR {
  UINT8 Length;
  UINT8 DescriptorType;
  UINT16 BcdUSB;
  UINT8 DeviceClass;
  UINT8 DeviceSubClass;
  UINT8 DeviceProtocol;
  UINT8 MaxPacketSize0;
  UINT16 IdVendor;
  UINT16 IdProduct;
  UINT16 BcdDevice;
  UINT8 StrManufacturer;  // string index; 0: none
  UINT8 StrProduct;
  UINT8 StrSerialNumber;
  UINT8 NumConfigurations;
};
static_assert(sizeof(EFI_USB_DEVICE_DESCRIPTOR) == 18);

struct EFI_USB_CONFIG_DESCRIPTOR {
  UINT8 Length;
  UINT8 DescriptorType;
  UINT16 TotalLength;  // with the interface and endpoint descriptors that follow
  UINT8 NumInterfaces;
  UINT8 ConfigurationValue;
  UINT8 Configuration;  // string index
  UINT8 Attributes;
  UINT8 MaxPower;  // in units of 2 mA
};
static_assert(sizeof(EFI_USB_CONFIG_DESCRIPTOR) == 9);

struct EFI_USB_INTERFACE_DESCRIPTOR {
  UINT8 Length;
  UINT8 DescriptorType;
  UINT8 InterfaceNumber;
  UINT8 AlternateSetting;
  UINT8 NumEndpoints;  // endpoint 0 not counted
  UINT8 InterfaceClass;
  UINT8 InterfaceSubClass;
  UINT8 InterfaceProtocol;
  UINT8 Interface;  // string index
};
static_assert(sizeof(EFI_USB_INTERFACE_DESCRIPTOR) == 9);

struct EFI_USB_ENDPOINT_DESCRIPTOR {
  UINT8 Length;
  UINT8 DescriptorType;
  UINT8 EndpointAddress;  // bit 7: to the host; bits 3:0: number
  UINT8 Attributes;       // bits 1:0: transfer type
  UINT16 MaxPacketSize;
  UINT8 Interval;
};
static_assert(sizeof(EFI_USB_ENDPOINT_DESCRIPTOR) == 7);

// UTF-16 without NUL fills the descriptor behind the two bytes.
struct EFI_USB_STRING_DESCRIPTOR {
  UINT8 Length;
  UINT8 DescriptorType;
  CHAR16 String[1];
};
static_assert(offsetof(EFI_USB_STRING_DESCRIPTOR, String) == 2);

#pragma pack(pop)

inline constexpr UINT8 USB_DESC_TYPE_DEVICE = 0x01;
inline constexpr UINT8 USB_DESC_TYPE_CONFIG = 0x02;
inline constexpr UINT8 USB_DESC_TYPE_STRING = 0x03;
inline constexpr UINT8 USB_DESC_TYPE_INTERFACE = 0x04;
inline constexpr UINT8 USB_DESC_TYPE_ENDPOINT = 0x05;

inline constexpr UINT8 USB_ENDPOINT_DIR_IN = 0x80;
inline constexpr UINT8 USB_ENDPOINT_TYPE_MASK = 0x03;
inline constexpr UINT8 USB_ENDPOINT_CONTROL = 0x00;
inline constexpr UINT8 USB_ENDPOINT_ISO = 0x01;
inline constexpr UINT8 USB_ENDPOINT_BULK = 0x02;
inline constexpr UINT8 USB_ENDPOINT_INTERRUPT = 0x03;

// RequestType: direction, kind and recipient, added together.
inline constexpr UINT8 USB_REQ_TYPE_IN = 0x80;
inline constexpr UINT8 USB_REQ_TYPE_STANDARD = 0x00;
inline constexpr UINT8 USB_REQ_TYPE_CLASS = 0x20;
inline constexpr UINT8 USB_REQ_TYPE_VENDOR = 0x40;
inline constexpr UINT8 USB_TARGET_DEVICE = 0x00;
inline constexpr UINT8 USB_TARGET_INTERFACE = 0x01;
inline constexpr UINT8 USB_TARGET_ENDPOINT = 0x02;
inline constexpr UINT8 USB_TARGET_OTHER = 0x03;

inline constexpr UINT8 USB_REQ_GET_STATUS = 0x00;
inline constexpr UINT8 USB_REQ_CLEAR_FEATURE = 0x01;
inline constexpr UINT8 USB_REQ_SET_FEATURE = 0x03;
inline constexpr UINT8 USB_REQ_SET_ADDRESS = 0x05;
inline constexpr UINT8 USB_REQ_GET_DESCRIPTOR = 0x06;
inline constexpr UINT8 USB_REQ_GET_CONFIG = 0x08;
inline constexpr UINT8 USB_REQ_SET_CONFIG = 0x09;
inline constexpr UINT8 USB_REQ_GET_INTERFACE = 0x0A;
inline constexpr UINT8 USB_REQ_SET_INTERFACE = 0x0B;
inline constexpr UINT16 USB_FEATURE_ENDPOINT_HALT = 0;

// Interface classes, and the subclasses and protocols of mass storage.
inline constexpr UINT8 USB_CLASS_HID = 0x03;
inline constexpr UINT8 USB_CLASS_MASS_STORAGE = 0x08;
inline constexpr UINT8 USB_CLASS_HUB = 0x09;
inline constexpr UINT8 USB_MASS_STORE_SCSI = 0x06;
inline constexpr UINT8 USB_MASS_STORE_CBI0 = 0x00;  // control/bulk/interrupt, completion by interrupt
inline constexpr UINT8 USB_MASS_STORE_CBI1 = 0x01;  // control/bulk/interrupt, no completion interrupt
inline constexpr UINT8 USB_MASS_STORE_BOT = 0x50;   // bulk-only transport

enum EFI_USB_DATA_DIRECTION : UINT32 { EfiUsbDataIn, EfiUsbDataOut, EfiUsbNoData };

// Results of a transfer, in its Status.
inline constexpr UINT32 EFI_USB_NOERROR = 0x0000;
inline constexpr UINT32 EFI_USB_ERR_NOTEXECUTE = 0x0001;
inline constexpr UINT32 EFI_USB_ERR_STALL = 0x0002;
inline constexpr UINT32 EFI_USB_ERR_BUFFER = 0x0004;
inline constexpr UINT32 EFI_USB_ERR_BABBLE = 0x0008;
inline constexpr UINT32 EFI_USB_ERR_NAK = 0x0010;
inline constexpr UINT32 EFI_USB_ERR_CRC = 0x0020;
inline constexpr UINT32 EFI_USB_ERR_TIMEOUT = 0x0040;
inline constexpr UINT32 EFI_USB_ERR_BITSTUFF = 0x0080;
inline constexpr UINT32 EFI_USB_ERR_SYSTEM = 0x0100;

using EFI_ASYNC_USB_TRANSFER_CALLBACK = EFI_STATUS(EFIAPI*)(VOID* Data, UINTN DataLength, VOID* Context, UINT32 Status);

// Timeouts are in milliseconds, 0 waits without end. DeviceEndpoint is an endpoint address with its direction bit.
// Strings are pool memory that the caller frees.
struct EFI_USB_IO_PROTOCOL {
  EFI_STATUS(EFIAPI* UsbControlTransfer)
  (EFI_USB_IO_PROTOCOL* This, EFI_USB_DEVICE_REQUEST* Request, EFI_USB_DATA_DIRECTION Direction, UINT32 Timeout,
   VOID* Data, UINTN DataLength, UINT32* Status);
  EFI_STATUS(EFIAPI* UsbBulkTransfer)
  (EFI_USB_IO_PROTOCOL* This, UINT8 DeviceEndpoint, VOID* Data, UINTN* DataLength, UINTN Timeout, UINT32* Status);
  EFI_STATUS(EFIAPI* UsbAsyncInterruptTransfer)
  (EFI_USB_IO_PROTOCOL* This, UINT8 DeviceEndpoint, BOOLEAN IsNewTransfer, UINTN PollingInterval, UINTN DataLength,
   EFI_ASYNC_USB_TRANSFER_CALLBACK InterruptCallBack, VOID* Context);
  EFI_STATUS(EFIAPI* UsbSyncInterruptTransfer)
  (EFI_USB_IO_PROTOCOL* This, UINT8 DeviceEndpoint, VOID* Data, UINTN* DataLength, UINTN Timeout, UINT32* Status);
  EFI_STATUS(EFIAPI* UsbIsochronousTransfer)
  (EFI_USB_IO_PROTOCOL* This, UINT8 DeviceEndpoint, VOID* Data, UINTN DataLength, UINT32* Status);
  EFI_STATUS(EFIAPI* UsbAsyncIsochronousTransfer)
  (EFI_USB_IO_PROTOCOL* This, UINT8 DeviceEndpoint, VOID* Data, UINTN DataLength,
   EFI_ASYNC_USB_TRANSFER_CALLBACK IsochronousCallBack, VOID* Context);
  EFI_STATUS(EFIAPI* UsbGetDeviceDescriptor)(EFI_USB_IO_PROTOCOL* This, EFI_USB_DEVICE_DESCRIPTOR* DeviceDescriptor);
  EFI_STATUS(EFIAPI* UsbGetConfigDescriptor)
  (EFI_USB_IO_PROTOCOL* This, EFI_USB_CONFIG_DESCRIPTOR* ConfigurationDescriptor);
  EFI_STATUS(EFIAPI* UsbGetInterfaceDescriptor)
  (EFI_USB_IO_PROTOCOL* This, EFI_USB_INTERFACE_DESCRIPTOR* InterfaceDescriptor);
  // EndpointIndex counts the interface's endpoints from 0.
  EFI_STATUS(EFIAPI* UsbGetEndpointDescriptor)
  (EFI_USB_IO_PROTOCOL* This, UINT8 EndpointIndex, EFI_USB_ENDPOINT_DESCRIPTOR* EndpointDescriptor);
  EFI_STATUS(EFIAPI* UsbGetStringDescriptor)
  (EFI_USB_IO_PROTOCOL* This, UINT16 LangID, UINT8 StringID, CHAR16** String);
  EFI_STATUS(EFIAPI* UsbGetSupportedLanguages)(EFI_USB_IO_PROTOCOL* This, UINT16** LangIDTable, UINT16* TableSize);
  EFI_STATUS(EFIAPI* UsbPortReset)(EFI_USB_IO_PROTOCOL* This);
};
static_assert(offsetof(EFI_USB_IO_PROTOCOL, UsbBulkTransfer) == 8);
static_assert(offsetof(EFI_USB_IO_PROTOCOL, UsbSyncInterruptTransfer) == 24);
static_assert(offsetof(EFI_USB_IO_PROTOCOL, UsbGetDeviceDescriptor) == 48);
static_assert(offsetof(EFI_USB_IO_PROTOCOL, UsbGetInterfaceDescriptor) == 64);
static_assert(offsetof(EFI_USB_IO_PROTOCOL, UsbGetEndpointDescriptor) == 72);
static_assert(sizeof(EFI_USB_IO_PROTOCOL) == 104);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_USB_IO_PROTOCOL>{
    0x2B2F68D6, 0x0CD2, 0x44CF, {0x8E, 0x8B, 0xBB, 0xA2, 0x0B, 0x1B, 0x5B, 0x75}};
