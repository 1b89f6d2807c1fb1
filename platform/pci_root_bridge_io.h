// The PCI root bridge I/O protocol (UEFI 2.10, 14.2): the spaces behind one root bridge.
#pragma once

#include "platform/boot_services.h"

struct EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL;

// Fifo: the register address stays, the buffer advances. Fill: the address advances, the buffer stays.
enum EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH : UINT32 {
  EfiPciWidthUint8,
  EfiPciWidthUint16,
  EfiPciWidthUint32,
  EfiPciWidthUint64,
  EfiPciWidthFifoUint8,
  EfiPciWidthFifoUint16,
  EfiPciWidthFifoUint32,
  EfiPciWidthFifoUint64,
  EfiPciWidthFillUint8,
  EfiPciWidthFillUint16,
  EfiPciWidthFillUint32,
  EfiPciWidthFillUint64,
  EfiPciWidthMaximum,
};

enum EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION : UINT32 {
  EfiPciOperationBusMasterRead,
  EfiPciOperationBusMasterWrite,
  EfiPciOperationBusMasterCommonBuffer,
  EfiPciOperationBusMasterRead64,
  EfiPciOperationBusMasterWrite64,
  EfiPciOperationBusMasterCommonBuffer64,
  EfiPciOperationMaximum,
};

inline constexpr UINT64 EFI_PCI_ATTRIBUTE_ISA_MOTHERBOARD_IO = 0x00001;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_ISA_IO = 0x00002;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_VGA_PALETTE_IO = 0x00004;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_VGA_MEMORY = 0x00008;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_VGA_IO = 0x00010;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_IDE_PRIMARY_IO = 0x00020;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_IDE_SECONDARY_IO = 0x00040;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_MEMORY_WRITE_COMBINE = 0x00080;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_MEMORY_CACHED = 0x00800;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_MEMORY_DISABLE = 0x01000;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_DUAL_ADDRESS_CYCLE = 0x08000;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_ISA_IO_16 = 0x10000;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_VGA_PALETTE_IO_16 = 0x20000;
inline constexpr UINT64 EFI_PCI_ATTRIBUTE_VGA_IO_16 = 0x40000;

// The form of an Address in the configuration space. ExtendedRegister, when not zero, stands in for Register.
struct EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_PCI_ADDRESS {
  UINT8 Register;
  UINT8 Function;
  UINT8 Device;
  UINT8 Bus;
  UINT32 ExtendedRegister;
};
static_assert(sizeof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_PCI_ADDRESS) == 8);

// Delay is in units of 100 ns.
using EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_POLL_IO_MEM = EFI_STATUS(EFIAPI*)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This,
                                                                        EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                                                                        UINT64 Address, UINT64 Mask, UINT64 Value,
                                                                        UINT64 Delay, UINT64* Result);

// Count is in units of Width.
using EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_IO_MEM = EFI_STATUS(EFIAPI*)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This,
                                                                   EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width,
                                                                   UINT64 Address, UINTN Count, VOID* Buffer);

struct EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS {
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_IO_MEM Read;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_IO_MEM Write;
};

struct EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL {
  EFI_HANDLE ParentHandle;  // the host bridge
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_POLL_IO_MEM PollMem;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_POLL_IO_MEM PollIo;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS Mem;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS Io;
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_ACCESS Pci;
  EFI_STATUS(EFIAPI* CopyMem)
  (EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH Width, UINT64 DestAddress,
   UINT64 SrcAddress, UINTN Count);
  EFI_STATUS(EFIAPI* Map)
  (EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION Operation, VOID* HostAddress,
   UINTN* NumberOfBytes, EFI_PHYSICAL_ADDRESS* DeviceAddress, VOID** Mapping);
  EFI_STATUS(EFIAPI* Unmap)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, VOID* Mapping);
  EFI_STATUS(EFIAPI* AllocateBuffer)
  (EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, EFI_ALLOCATE_TYPE Type, EFI_MEMORY_TYPE MemoryType, UINTN Pages,
   VOID** HostAddress, UINT64 Attributes);
  EFI_STATUS(EFIAPI* FreeBuffer)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, UINTN Pages, VOID* HostAddress);
  EFI_STATUS(EFIAPI* Flush)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This);
  EFI_STATUS(EFIAPI* GetAttributes)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, UINT64* Supports, UINT64* Attributes);
  EFI_STATUS(EFIAPI* SetAttributes)
  (EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, UINT64 Attributes, UINT64* ResourceBase, UINT64* ResourceLength);
  EFI_STATUS(EFIAPI* Configuration)(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* This, VOID** Resources);
  UINT32 SegmentNumber;
};
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, Mem) == 24);
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, Pci) == 56);
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, CopyMem) == 72);
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, AllocateBuffer) == 96);
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, Configuration) == 136);
static_assert(offsetof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, SegmentNumber) == 144);
static_assert(sizeof(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL) == 152);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>{
    0x2F707EBB, 0x4A1A, 0x11D4, {0x9A, 0x38, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};
