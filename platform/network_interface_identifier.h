// The network interface identifier protocol (UEFI 2.10, 24.2): an adapter that has a universal network driver
// interface.
#pragma once

#include "platform/uefi_base.h"

inline constexpr UINT64 EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_REVISION = 0x00020000;

// EFI_NETWORK_INTERFACE_TYPE, kept in one byte.
inline constexpr UINT8 EfiNetworkInterfaceUndi = 1;

struct EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL {
  UINT64 Revision;
  UINT64 Id;          // address of the entry structure
  UINT64 ImageAddr;   // 0: not known
  UINT32 ImageSize;   // in bytes
  CHAR8 StringId[4];  // "UNDI", without NUL
  UINT8 Type;         // EFI_NETWORK_INTERFACE_TYPE
  UINT8 MajorVer;
  UINT8 MinorVer;
  BOOLEAN Ipv6Supported;
  UINT16 IfNum;  // this adapter, among those behind the entry structure
};
static_assert(offsetof(EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL, ImageSize) == 24);
static_assert(offsetof(EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL, StringId) == 28);
static_assert(offsetof(EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL, Type) == 32);
static_assert(offsetof(EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL, IfNum) == 36);
static_assert(sizeof(EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL) == 40);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>{
    0xE18541CD, 0xF755, 0x4F73, {0x92, 0x8D, 0x64, 0x3C, 0x8A, 0x79, 0xB2, 0x29}};

// Adapters of the first revision of the interface publish the same record under a GUID of its own.
struct EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_OLD {
  EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL Nii;
};
static_assert(sizeof(EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_OLD) == 40);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_OLD>{
    0x1ACED566, 0x76ED, 0x4218, {0xBC, 0x81, 0x76, 0x7F, 0x1F, 0x97, 0x7A, 0x89}};
