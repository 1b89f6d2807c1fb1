// Device path nodes (UEFI 2.10, 10.3) as they lie in memory and in NVRAM: packed, little-endian, unaligned.
#pragma once

#include "platform/uefi_base.h"

struct EFI_DEVICE_PATH_PROTOCOL {
  UINT8 Type;
  UINT8 SubType;
  UINT8 Length[2];  // little-endian, counts these four bytes
};
static_assert(sizeof(EFI_DEVICE_PATH_PROTOCOL) == 4);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>{
    0x09576E91, 0x6D3F, 0x11D2, {0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

inline constexpr UINT8 HARDWARE_DEVICE_PATH = 1;
inline constexpr UINT8 HW_PCI_DP = 1;
inline constexpr UINT8 HW_PCCARD_DP = 2;
inline constexpr UINT8 HW_MEMMAP_DP = 3;
inline constexpr UINT8 HW_VENDOR_DP = 4;
inline constexpr UINT8 HW_CONTROLLER_DP = 5;
inline constexpr UINT8 ACPI_DEVICE_PATH = 2;
inline constexpr UINT8 ACPI_DP = 1;
inline constexpr UINT8 MESSAGING_DEVICE_PATH = 3;
inline constexpr UINT8 MSG_ATAPI_DP = 1;
inline constexpr UINT8 MSG_SCSI_DP = 2;
inline constexpr UINT8 MSG_FIBRECHANNEL_DP = 3;
inline constexpr UINT8 MSG_USB_DP = 5;
inline constexpr UINT8 MSG_VENDOR_DP = 10;
inline constexpr UINT8 MSG_MAC_ADDR_DP = 11;
inline constexpr UINT8 MSG_IPV4_DP = 12;
inline constexpr UINT8 MSG_IPV6_DP = 13;
inline constexpr UINT8 MSG_UART_DP = 14;
inline constexpr UINT8 MSG_USB_CLASS_DP = 15;
inline constexpr UINT8 MSG_USB_WWID_DP = 16;
inline constexpr UINT8 MSG_LOGICAL_UNIT_DP = 17;
inline constexpr UINT8 MSG_SATA_DP = 18;
inline constexpr UINT8 MSG_ISCSI_DP = 19;
inline constexpr UINT8 MSG_FIBRECHANNELEX_DP = 21;
inline constexpr UINT8 MSG_SASEX_DP = 22;
inline constexpr UINT8 MSG_NVME_NAMESPACE_DP = 23;
inline constexpr UINT8 MEDIA_DEVICE_PATH = 4;
inline constexpr UINT8 MEDIA_HARDDRIVE_DP = 1;
inline constexpr UINT8 MEDIA_CDROM_DP = 2;
inline constexpr UINT8 MEDIA_VENDOR_DP = 3;
inline constexpr UINT8 MEDIA_FILEPATH_DP = 4;
inline constexpr UINT8 MEDIA_PROTOCOL_DP = 5;
inline constexpr UINT8 MEDIA_PIWG_FW_FILE_DP = 6;
inline constexpr UINT8 MEDIA_PIWG_FW_VOL_DP = 7;
inline constexpr UINT8 BBS_DEVICE_PATH = 5;
inline constexpr UINT8 BBS_BBS_DP = 1;
inline constexpr UINT8 END_DEVICE_PATH_TYPE = 0x7F;
inline constexpr UINT8 END_INSTANCE_DEVICE_PATH_SUBTYPE = 0x01;
inline constexpr UINT8 END_ENTIRE_DEVICE_PATH_SUBTYPE = 0xFF;

#pragma pack(push, 1)

struct PCI_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 Function;
  UINT8 Device;
};
static_assert(sizeof(PCI_DEVICE_PATH) == 6);

// Vendor-defined node of the hardware, messaging and media types; data may follow.
struct VENDOR_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  EFI_GUID Guid;
};
static_assert(sizeof(VENDOR_DEVICE_PATH) == 20);

struct CONTROLLER_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 ControllerNumber;
};
static_assert(sizeof(CONTROLLER_DEVICE_PATH) == 8);

struct ACPI_HID_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 HID;  // compressed EISA identifier, e.g. 0x0A0341D0 for PNP0A03
  UINT32 UID;
};
static_assert(sizeof(ACPI_HID_DEVICE_PATH) == 12);

struct ATAPI_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 PrimarySecondary;  // 0 primary, 1 secondary
  UINT8 SlaveMaster;       // 0 master, 1 slave
  UINT16 Lun;
};
static_assert(sizeof(ATAPI_DEVICE_PATH) == 8);

struct SCSI_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 Pun;
  UINT16 Lun;
};
static_assert(sizeof(SCSI_DEVICE_PATH) == 8);

// Two subtypes with one layout: the older one holds both fields as integers, the newer one as bytes in order.
struct FIBRECHANNEL_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 Reserved;
  UINT8 WWN[8];  // world wide port name of the target
  UINT8 Lun[8];
};
static_assert(sizeof(FIBRECHANNEL_DEVICE_PATH) == 24);

// The target's name, ASCII, without a NUL of its own, fills the node behind these fields.
struct ISCSI_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 NetworkProtocol;  // 0: TCP
  UINT16 LoginOption;      // bits 1:0 header digest, 3:2 data digest (0 none, 2 CRC32C), 11:10 authentication (2 none)
  UINT8 Lun[8];            // bytes in order
  UINT16 TargetPortalGroupTag;
};
static_assert(sizeof(ISCSI_DEVICE_PATH) == 18);

struct USB_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 ParentPortNumber;
  UINT8 InterfaceNumber;
};
static_assert(sizeof(USB_DEVICE_PATH) == 6);

struct USB_CLASS_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 VendorId;
  UINT16 ProductId;
  UINT8 DeviceClass;
  UINT8 DeviceSubClass;
  UINT8 DeviceProtocol;
};
static_assert(sizeof(USB_CLASS_DEVICE_PATH) == 11);

// A serial number in UTF-16, without NUL, follows.
struct USB_WWID_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 InterfaceNumber;
  UINT16 VendorId;
  UINT16 ProductId;
};
static_assert(sizeof(USB_WWID_DEVICE_PATH) == 10);

struct DEVICE_LOGICAL_UNIT_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 Lun;
};
static_assert(sizeof(DEVICE_LOGICAL_UNIT_DEVICE_PATH) == 5);

struct SATA_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 HBAPortNumber;
  UINT16 PortMultiplierPortNumber;  // 0xFFFF: directly attached
  UINT16 Lun;
};
static_assert(sizeof(SATA_DEVICE_PATH) == 10);

struct SASEX_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 SasAddress[8];
  UINT8 Lun[8];
  UINT16 DeviceTopology;
  UINT16 RelativeTargetPort;
};
static_assert(sizeof(SASEX_DEVICE_PATH) == 24);

struct NVME_NAMESPACE_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 NamespaceId;
  UINT64 NamespaceUuid;  // IEEE EUI-64
};
static_assert(sizeof(NVME_NAMESPACE_DEVICE_PATH) == 16);

struct MAC_ADDR_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 MacAddress[32];  // padded with zeros
  UINT8 IfType;          // RFC 3232; 1 is Ethernet
};
static_assert(sizeof(MAC_ADDR_DEVICE_PATH) == 37);

struct IPv4_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 LocalIpAddress[4];
  UINT8 RemoteIpAddress[4];
  UINT16 LocalPort;
  UINT16 RemotePort;
  UINT16 Protocol;
  BOOLEAN StaticIpAddress;
  UINT8 GatewayIpAddress[4];
  UINT8 SubnetMask[4];
};
static_assert(sizeof(IPv4_DEVICE_PATH) == 27);

struct IPv6_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT8 LocalIpAddress[16];
  UINT8 RemoteIpAddress[16];
  UINT16 LocalPort;
  UINT16 RemotePort;
  UINT16 Protocol;
  UINT8 IpAddressOrigin;
  UINT8 PrefixLength;
  UINT8 GatewayIpAddress[16];
};
static_assert(sizeof(IPv6_DEVICE_PATH) == 60);

struct UART_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 Reserved;
  UINT64 BaudRate;
  UINT8 DataBits;
  UINT8 Parity;
  UINT8 StopBits;
};
static_assert(sizeof(UART_DEVICE_PATH) == 19);

struct HARDDRIVE_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 PartitionNumber;  // 1-based
  UINT64 PartitionStart;   // in blocks
  UINT64 PartitionSize;    // in blocks
  UINT8 Signature[16];     // GPT: unique partition GUID; MBR: disk signature in the first four bytes
  UINT8 MBRType;           // 1 MBR, 2 GPT
  UINT8 SignatureType;     // 0 none, 1 MBR, 2 GUID
};
static_assert(sizeof(HARDDRIVE_DEVICE_PATH) == 42);

struct CDROM_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT32 BootEntry;
  UINT64 PartitionStart;  // in logical blocks
  UINT64 PartitionSize;
};
static_assert(sizeof(CDROM_DEVICE_PATH) == 24);

// The path name, UTF-16 with NUL, fills the node behind the header.
struct FILEPATH_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  CHAR16 PathName[1];
};

// Firmware file and firmware volume nodes (PI 1.7).
struct MEDIA_FW_VOL_FILEPATH_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  EFI_GUID FvFileName;
};
static_assert(sizeof(MEDIA_FW_VOL_FILEPATH_DEVICE_PATH) == 20);

// A NUL-terminated ASCII description fills the node behind the flags.
struct BBS_BBS_DEVICE_PATH {
  EFI_DEVICE_PATH_PROTOCOL Header;
  UINT16 DeviceType;
  UINT16 StatusFlag;
  CHAR8 String[1];
};
static_assert(sizeof(BBS_BBS_DEVICE_PATH) == 9);

#pragma pack(pop)

// BBS device types (BBS 1.01), also in BBS_TABLE::DeviceType.
inline constexpr UINT16 BBS_TYPE_FLOPPY = 0x01;
inline constexpr UINT16 BBS_TYPE_HARDDRIVE = 0x02;
inline constexpr UINT16 BBS_TYPE_CDROM = 0x03;
inline constexpr UINT16 BBS_TYPE_PCMCIA = 0x04;
inline constexpr UINT16 BBS_TYPE_USB = 0x05;
inline constexpr UINT16 BBS_TYPE_EMBEDDED_NETWORK = 0x06;
inline constexpr UINT16 BBS_TYPE_BEV = 0x80;
inline constexpr UINT16 BBS_TYPE_UNKNOWN = 0xFF;
