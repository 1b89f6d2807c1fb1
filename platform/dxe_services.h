// The DXE services table (PI 1.7, volume 2, 7.2 and 7.3), complete and in order.
#pragma once

#include "platform/boot_services.h"

enum EFI_GCD_MEMORY_TYPE : UINT32 {
  EfiGcdMemoryTypeNonExistent,
  EfiGcdMemoryTypeReserved,
  EfiGcdMemoryTypeSystemMemory,
  EfiGcdMemoryTypeMemoryMappedIo,
  EfiGcdMemoryTypePersistent,
  EfiGcdMemoryTypeMoreReliable,
  EfiGcdMemoryTypeMaximum,
};
enum EFI_GCD_IO_TYPE : UINT32 { EfiGcdIoTypeNonExistent, EfiGcdIoTypeReserved, EfiGcdIoTypeIo, EfiGcdIoTypeMaximum };
enum EFI_GCD_ALLOCATE_TYPE : UINT32 {
  EfiGcdAllocateAnySearchBottomUp,
  EfiGcdAllocateMaxAddressSearchBottomUp,
  EfiGcdAllocateAddress,
  EfiGcdAllocateAnySearchTopDown,
  EfiGcdAllocateMaxAddressSearchTopDown,
  EfiGcdMaxAllocateType,
};

// Memory states in the upper bits of the capabilities, as the platform's memory initialisation reports them.
inline constexpr UINT64 EFI_MEMORY_PRESENT = 0x0100000000000000;
inline constexpr UINT64 EFI_MEMORY_INITIALIZED = 0x0200000000000000;
inline constexpr UINT64 EFI_MEMORY_TESTED = 0x0400000000000000;

struct EFI_GCD_MEMORY_SPACE_DESCRIPTOR {
  EFI_PHYSICAL_ADDRESS BaseAddress;
  UINT64 Length;
  UINT64 Capabilities;
  UINT64 Attributes;
  EFI_GCD_MEMORY_TYPE GcdMemoryType;
  EFI_HANDLE ImageHandle;
  EFI_HANDLE DeviceHandle;
};
static_assert(offsetof(EFI_GCD_MEMORY_SPACE_DESCRIPTOR, ImageHandle) == 40);
static_assert(sizeof(EFI_GCD_MEMORY_SPACE_DESCRIPTOR) == 56);

struct EFI_GCD_IO_SPACE_DESCRIPTOR {
  EFI_PHYSICAL_ADDRESS BaseAddress;
  UINT64 Length;
  EFI_GCD_IO_TYPE GcdIoType;
  EFI_HANDLE ImageHandle;
  EFI_HANDLE DeviceHandle;
};
static_assert(sizeof(EFI_GCD_IO_SPACE_DESCRIPTOR) == 40);

struct DXE_SERVICES {
  EFI_TABLE_HEADER Hdr;
  EFI_STATUS(EFIAPI* AddMemorySpace)
  (EFI_GCD_MEMORY_TYPE GcdMemoryType, EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length, UINT64 Capabilities);
  EFI_STATUS(EFIAPI* AllocateMemorySpace)
  (EFI_GCD_ALLOCATE_TYPE GcdAllocateType, EFI_GCD_MEMORY_TYPE GcdMemoryType, UINTN Alignment, UINT64 Length,
   EFI_PHYSICAL_ADDRESS* BaseAddress, EFI_HANDLE ImageHandle, EFI_HANDLE DeviceHandle);
  EFI_STATUS(EFIAPI* FreeMemorySpace)(EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length);
  EFI_STATUS(EFIAPI* RemoveMemorySpace)(EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length);
  EFI_STATUS(EFIAPI* GetMemorySpaceDescriptor)
  (EFI_PHYSICAL_ADDRESS BaseAddress, EFI_GCD_MEMORY_SPACE_DESCRIPTOR* Descriptor);
  EFI_STATUS(EFIAPI* SetMemorySpaceAttributes)(EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length, UINT64 Attributes);
  EFI_STATUS(EFIAPI* GetMemorySpaceMap)
  (UINTN* NumberOfDescriptors, EFI_GCD_MEMORY_SPACE_DESCRIPTOR** MemorySpaceMap);
  EFI_STATUS(EFIAPI* AddIoSpace)(EFI_GCD_IO_TYPE GcdIoType, EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length);
  EFI_STATUS(EFIAPI* AllocateIoSpace)
  (EFI_GCD_ALLOCATE_TYPE AllocateType, EFI_GCD_IO_TYPE GcdIoType, UINTN Alignment, UINT64 Length,
   EFI_PHYSICAL_ADDRESS* BaseAddress, EFI_HANDLE ImageHandle, EFI_HANDLE DeviceHandle);
  EFI_STATUS(EFIAPI* FreeIoSpace)(EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length);
  EFI_STATUS(EFIAPI* RemoveIoSpace)(EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length);
  EFI_STATUS(EFIAPI* GetIoSpaceDescriptor)(EFI_PHYSICAL_ADDRESS BaseAddress, EFI_GCD_IO_SPACE_DESCRIPTOR* Descriptor);
  EFI_STATUS(EFIAPI* GetIoSpaceMap)(UINTN* NumberOfDescriptors, EFI_GCD_IO_SPACE_DESCRIPTOR** IoSpaceMap);
  EFI_STATUS(EFIAPI* Dispatch)();
  EFI_STATUS(EFIAPI* Schedule)(EFI_HANDLE FirmwareVolumeHandle, const EFI_GUID* FileName);
  EFI_STATUS(EFIAPI* Trust)(EFI_HANDLE FirmwareVolumeHandle, const EFI_GUID* FileName);
  EFI_STATUS(EFIAPI* ProcessFirmwareVolume)
  (const VOID* FirmwareVolumeHeader, UINTN Size, EFI_HANDLE* FirmwareVolumeHandle);
  EFI_STATUS(EFIAPI* SetMemorySpaceCapabilities)
  (EFI_PHYSICAL_ADDRESS BaseAddress, UINT64 Length, UINT64 Capabilities);
};
static_assert(offsetof(DXE_SERVICES, RemoveMemorySpace) == 48);
static_assert(offsetof(DXE_SERVICES, GetMemorySpaceMap) == 72);
static_assert(offsetof(DXE_SERVICES, Dispatch) == 128);
static_assert(sizeof(DXE_SERVICES) == 168);
