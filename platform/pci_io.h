// The PCI I/O protocol (UEFI 2.10, 14.4): configuration, memory and port space of one PCI function.
#pragma once

#include "platform/boot_services.h"

struct EFI_PCI_IO_PROTOCOL;

// Fifo: the register address stays, the buffer advances. Fill: the address advances, the buffer stays.
enum EFI_PCI_IO_PROTOCOL_WIDTH : UINT32 {
  EfiPciIoWidthUint8,
  EfiPciIoWidthUint16,
  EfiPciIoWidthUint32,
  EfiPciIoWidthUint64,
  EfiPciIoWidthFifoUint8,
  EfiPciIoWidthFifoUint16,
  EfiPciIoWidthFifoUint32,
  EfiPciIoWidthFifoUint64,
  EfiPciIoWidthFillUint8,
  EfiPciIoWidthFillUint16,
  EfiPciIoWidthFillUint32,
  EfiPciIoWidthFillUint64,
  EfiPciIoWidthMaximum,
};

enum EFI_PCI_IO_PROTOCOL_OPERATION : UINT32 {
  EfiPciIoOperationBusMasterRead,
  EfiPciIoOperationBusMasterWrite,
  EfiPciIoOperationBusMasterCommonBuffer,
  EfiPciIoOperationMaximum,
};

enum EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION : UINT32 {
  EfiPciIoAttributeOperationGet,
  EfiPciIoAttributeOperationSet,
  EfiPciIoAttributeOperationEnable,
  EfiPciIoAttributeOperationDisable,
  EfiPciIoAttributeOperationSupported,
  EfiPciIoAttributeOperationMaximum,
};

// As BarIndex: the offset is an absolute address of the space.
inline constexpr UINT8 EFI_PCI_IO_PASS_THROUGH_BAR = 0xFF;

inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_ISA_MOTHERBOARD_IO = 0x00001;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_ISA_IO = 0x00002;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_VGA_PALETTE_IO = 0x00004;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_VGA_MEMORY = 0x00008;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_VGA_IO = 0x00010;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_IDE_PRIMARY_IO = 0x00020;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_IDE_SECONDARY_IO = 0x00040;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_MEMORY_WRITE_COMBINE = 0x00080;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_IO = 0x00100;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_MEMORY = 0x00200;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_BUS_MASTER = 0x00400;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_MEMORY_CACHED = 0x00800;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_MEMORY_DISABLE = 0x01000;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_EMBEDDED_DEVICE = 0x02000;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_EMBEDDED_ROM = 0x04000;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_DUAL_ADDRESS_CYCLE = 0x08000;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_ISA_IO_16 = 0x10000;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_VGA_PALETTE_IO_16 = 0x20000;
inline constexpr UINT64 EFI_PCI_IO_ATTRIBUTE_VGA_IO_16 = 0x40000;
inline constexpr UINT64 EFI_PCI_DEVICE_ENABLE =
    EFI_PCI_IO_ATTRIBUTE_IO | EFI_PCI_IO_ATTRIBUTE_MEMORY | EFI_PCI_IO_ATTRIBUTE_BUS_MASTER;

// Delay is in units of 100 ns; Result receives the last value read, whether or not the poll timed out.
using EFI_PCI_IO_PROTOCOL_POLL_IO_MEM = EFI_STATUS(EFIAPI*)(EFI_PCI_IO_PROTOCOL* This, EFI_PCI_IO_PROTOCOL_WIDTH Width,
                                                            UINT8 BarIndex, UINT64 Offset, UINT64 Mask, UINT64 Value,
                                                            UINT64 Delay, UINT64* Result);

// Count is in units of Width.
using EFI_PCI_IO_PROTOCOL_IO_MEM = EFI_STATUS(EFIAPI*)(EFI_PCI_IO_PROTOCOL* This, EFI_PCI_IO_PROTOCOL_WIDTH Width,
                                                       UINT8 BarIndex, UINT64 Offset, UINTN Count, VOID* Buffer);
using EFI_PCI_IO_PROTOCOL_CONFIG = EFI_STATUS(EFIAPI*)(EFI_PCI_IO_PROTOCOL* This, EFI_PCI_IO_PROTOCOL_WIDTH Width,
                                                       UINT32 Offset, UINTN Count, VOID* Buffer);

struct EFI_PCI_IO_PROTOCOL_ACCESS {
  EFI_PCI_IO_PROTOCOL_IO_MEM Read;
  EFI_PCI_IO_PROTOCOL_IO_MEM Write;
};

struct EFI_PCI_IO_PROTOCOL_CONFIG_ACCESS {
  EFI_PCI_IO_PROTOCOL_CONFIG Read;
  EFI_PCI_IO_PROTOCOL_CONFIG Write;
};

struct EFI_PCI_IO_PROTOCOL {
  EFI_PCI_IO_PROTOCOL_POLL_IO_MEM PollMem;
  EFI_PCI_IO_PROTOCOL_POLL_IO_MEM PollIo;
  EFI_PCI_IO_PROTOCOL_ACCESS Mem;
  EFI_PCI_IO_PROTOCOL_ACCESS Io;
  EFI_PCI_IO_PROTOCOL_CONFIG_ACCESS Pci;
  EFI_STATUS(EFIAPI* CopyMem)
  (EFI_PCI_IO_PROTOCOL* This, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINT8 DestBarIndex, UINT64 DestOffset, UINT8 SrcBarIndex,
   UINT64 SrcOffset, UINTN Count);
  EFI_STATUS(EFIAPI* Map)
  (EFI_PCI_IO_PROTOCOL* This, EFI_PCI_IO_PROTOCOL_OPERATION Operation, VOID* HostAddress, UINTN* NumberOfBytes,
   EFI_PHYSICAL_ADDRESS* DeviceAddress, VOID** Mapping);
  EFI_STATUS(EFIAPI* Unmap)(EFI_PCI_IO_PROTOCOL* This, VOID* Mapping);
  EFI_STATUS(EFIAPI* AllocateBuffer)
  (EFI_PCI_IO_PROTOCOL* This, EFI_ALLOCATE_TYPE Type, EFI_MEMORY_TYPE MemoryType, UINTN Pages, VOID** HostAddress,
   UINT64 Attributes);
  EFI_STATUS(EFIAPI* FreeBuffer)(EFI_PCI_IO_PROTOCOL* This, UINTN Pages, VOID* HostAddress);
  EFI_STATUS(EFIAPI* Flush)(EFI_PCI_IO_PROTOCOL* This);
  EFI_STATUS(EFIAPI* GetLocation)
  (EFI_PCI_IO_PROTOCOL* This, UINTN* SegmentNumber, UINTN* BusNumber, UINTN* DeviceNumber, UINTN* FunctionNumber);
  EFI_STATUS(EFIAPI* Attributes)
  (EFI_PCI_IO_PROTOCOL* This, EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION Operation, UINT64 Attributes, UINT64* Result);
  EFI_STATUS(EFIAPI* GetBarAttributes)
  (EFI_PCI_IO_PROTOCOL* This, UINT8 BarIndex, UINT64* Supports, VOID** Resources);
  EFI_STATUS(EFIAPI* SetBarAttributes)
  (EFI_PCI_IO_PROTOCOL* This, UINT64 Attributes, UINT8 BarIndex, UINT64* Offset, UINT64* Length);
  UINT64 RomSize;  // in bytes; 0: the function has no option ROM
  VOID* RomImage;
};
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, Mem) == 16);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, Io) == 32);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, Pci) == 48);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, CopyMem) == 64);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, AllocateBuffer) == 88);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, GetLocation) == 112);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, Attributes) == 120);
static_assert(offsetof(EFI_PCI_IO_PROTOCOL, RomSize) == 144);
static_assert(sizeof(EFI_PCI_IO_PROTOCOL) == 160);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_PCI_IO_PROTOCOL>{
    0x4CF5B200, 0x68B8, 0x4CA5, {0x9E, 0xEC, 0xB2, 0x3E, 0x3F, 0x50, 0x02, 0x9A}};
