// The simple network protocol (UEFI 2.10, 24.1): packets in and out of one network adapter.
#pragma once

#include "platform/uefi_base.h"

struct EFI_MAC_ADDRESS {
  UINT8 Addr[32];  // the first HwAddressSize bytes count
};
static_assert(sizeof(EFI_MAC_ADDRESS) == 32);

struct EFI_IPv4_ADDRESS {
  UINT8 Addr[4];
};

struct EFI_IPv6_ADDRESS {
  UINT8 Addr[16];
};

union EFI_IP_ADDRESS {
  UINT32 Addr[4];
  EFI_IPv4_ADDRESS v4;
  EFI_IPv6_ADDRESS v6;
};
static_assert(sizeof(EFI_IP_ADDRESS) == 16);
static_assert(alignof(EFI_IP_ADDRESS) == 4);

struct EFI_NETWORK_STATISTICS {
  UINT64 RxTotalFrames;
  UINT64 RxGoodFrames;
  UINT64 RxUndersizeFrames;
  UINT64 RxOversizeFrames;
  UINT64 RxDroppedFrames;
  UINT64 RxUnicastFrames;
  UINT64 RxBroadcastFrames;
  UINT64 RxMulticastFrames;
  UINT64 RxCrcErrorFrames;
  UINT64 RxTotalBytes;
  UINT64 TxTotalFrames;
  UINT64 TxGoodFrames;
  UINT64 TxUndersizeFrames;
  UINT64 TxOversizeFrames;
  UINT64 TxDroppedFrames;
  UINT64 TxUnicastFrames;
  UINT64 TxBroadcastFrames;
  UINT64 TxMulticastFrames;
  UINT64 TxCrcErrorFrames;
  UINT64 TxTotalBytes;
  UINT64 Collisions;
  UINT64 UnsupportedProtocol;
  UINT64 RxDuplicatedFrames;
  UINT64 RxDecryptErrorFrames;
  UINT64 TxErrorFrames;
  UINT64 TxRetryFrames;
};
static_assert(sizeof(EFI_NETWORK_STATISTICS) == 208);

enum EFI_SIMPLE_NETWORK_STATE : UINT32 {
  EfiSimpleNetworkStopped,
  EfiSimpleNetworkStarted,
  EfiSimpleNetworkInitialized,
  EfiSimpleNetworkMaxState,
};

inline constexpr UINT32 EFI_SIMPLE_NETWORK_RECEIVE_UNICAST = 0x01;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_RECEIVE_MULTICAST = 0x02;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_RECEIVE_BROADCAST = 0x04;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_RECEIVE_PROMISCUOUS = 0x08;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_RECEIVE_PROMISCUOUS_MULTICAST = 0x10;

inline constexpr UINT32 EFI_SIMPLE_NETWORK_RECEIVE_INTERRUPT = 0x01;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_TRANSMIT_INTERRUPT = 0x02;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_COMMAND_INTERRUPT = 0x04;
inline constexpr UINT32 EFI_SIMPLE_NETWORK_SOFTWARE_INTERRUPT = 0x08;

inline constexpr UINTN MAX_MCAST_FILTER_CNT = 16;

struct EFI_SIMPLE_NETWORK_MODE {
  UINT32 State;  // EFI_SIMPLE_NETWORK_STATE
  UINT32 HwAddressSize;
  UINT32 MediaHeaderSize;
  UINT32 MaxPacketSize;
  UINT32 NvRamSize;
  UINT32 NvRamAccessSize;
  UINT32 ReceiveFilterMask;
  UINT32 ReceiveFilterSetting;
  UINT32 MaxMCastFilterCount;
  UINT32 MCastFilterCount;
  EFI_MAC_ADDRESS MCastFilter[MAX_MCAST_FILTER_CNT];
  EFI_MAC_ADDRESS CurrentAddress;
  EFI_MAC_ADDRESS BroadcastAddress;
  EFI_MAC_ADDRESS PermanentAddress;
  UINT8 IfType;  // RFC 3232; 1 is Ethernet
  BOOLEAN MacAddressChangeable;
  BOOLEAN MultipleTxSupported;
  BOOLEAN MediaPresentSupported;
  BOOLEAN MediaPresent;
};
static_assert(offsetof(EFI_SIMPLE_NETWORK_MODE, MCastFilter) == 40);
static_assert(offsetof(EFI_SIMPLE_NETWORK_MODE, CurrentAddress) == 552);
static_assert(offsetof(EFI_SIMPLE_NETWORK_MODE, PermanentAddress) == 616);
static_assert(offsetof(EFI_SIMPLE_NETWORK_MODE, IfType) == 648);
static_assert(sizeof(EFI_SIMPLE_NETWORK_MODE) == 656);

inline constexpr UINT64 EFI_SIMPLE_NETWORK_PROTOCOL_REVISION = 0x00010000;

struct EFI_SIMPLE_NETWORK_PROTOCOL {
  UINT64 Revision;
  EFI_STATUS(EFIAPI* Start)(EFI_SIMPLE_NETWORK_PROTOCOL* This);
  EFI_STATUS(EFIAPI* Stop)(EFI_SIMPLE_NETWORK_PROTOCOL* This);
  EFI_STATUS(EFIAPI* Initialize)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, UINTN ExtraRxBufferSize, UINTN ExtraTxBufferSize);
  EFI_STATUS(EFIAPI* Reset)(EFI_SIMPLE_NETWORK_PROTOCOL* This, BOOLEAN ExtendedVerification);
  EFI_STATUS(EFIAPI* Shutdown)(EFI_SIMPLE_NETWORK_PROTOCOL* This);
  EFI_STATUS(EFIAPI* ReceiveFilters)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, UINT32 Enable, UINT32 Disable, BOOLEAN ResetMCastFilter, UINTN MCastFilterCnt,
   EFI_MAC_ADDRESS* MCastFilter);
  EFI_STATUS(EFIAPI* StationAddress)(EFI_SIMPLE_NETWORK_PROTOCOL* This, BOOLEAN Reset, EFI_MAC_ADDRESS* New);
  EFI_STATUS(EFIAPI* Statistics)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, BOOLEAN Reset, UINTN* StatisticsSize, EFI_NETWORK_STATISTICS* StatisticsTable);
  EFI_STATUS(EFIAPI* MCastIpToMac)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, BOOLEAN IPv6, EFI_IP_ADDRESS* IP, EFI_MAC_ADDRESS* MAC);
  EFI_STATUS(EFIAPI* NvData)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, BOOLEAN ReadWrite, UINTN Offset, UINTN BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* GetStatus)(EFI_SIMPLE_NETWORK_PROTOCOL* This, UINT32* InterruptStatus, VOID** TxBuf);
  EFI_STATUS(EFIAPI* Transmit)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, UINTN HeaderSize, UINTN BufferSize, VOID* Buffer, EFI_MAC_ADDRESS* SrcAddr,
   EFI_MAC_ADDRESS* DestAddr, UINT16* Protocol);
  EFI_STATUS(EFIAPI* Receive)
  (EFI_SIMPLE_NETWORK_PROTOCOL* This, UINTN* HeaderSize, UINTN* BufferSize, VOID* Buffer, EFI_MAC_ADDRESS* SrcAddr,
   EFI_MAC_ADDRESS* DestAddr, UINT16* Protocol);
  EFI_EVENT WaitForPacket;
  EFI_SIMPLE_NETWORK_MODE* Mode;
};
static_assert(offsetof(EFI_SIMPLE_NETWORK_PROTOCOL, Start) == 8);
static_assert(offsetof(EFI_SIMPLE_NETWORK_PROTOCOL, ReceiveFilters) == 48);
static_assert(offsetof(EFI_SIMPLE_NETWORK_PROTOCOL, GetStatus) == 88);
static_assert(offsetof(EFI_SIMPLE_NETWORK_PROTOCOL, Receive) == 104);
static_assert(offsetof(EFI_SIMPLE_NETWORK_PROTOCOL, WaitForPacket) == 112);
static_assert(offsetof(EFI_SIMPLE_NETWORK_PROTOCOL, Mode) == 120);
static_assert(sizeof(EFI_SIMPLE_NETWORK_PROTOCOL) == 128);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SIMPLE_NETWORK_PROTOCOL>{
    0xA19832B9, 0xAC25, 0x11D3, {0x9A, 0x2D, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};
