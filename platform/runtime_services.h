// The runtime services table (UEFI 2.10, 4.5 and chapter 8), complete and in order.
#pragma once

#include "platform/boot_services.h"

struct EFI_TIME {
  UINT16 Year;
  UINT8 Month;
  UINT8 Day;
  UINT8 Hour;
  UINT8 Minute;
  UINT8 Second;
  UINT8 Pad1;
  UINT32 Nanosecond;
  INT16 TimeZone;
  UINT8 Daylight;
  UINT8 Pad2;
};
static_assert(sizeof(EFI_TIME) == 16);

struct EFI_TIME_CAPABILITIES {
  UINT32 Resolution;
  UINT32 Accuracy;
  BOOLEAN SetsToZero;
};

enum EFI_RESET_TYPE : UINT32 { EfiResetCold, EfiResetWarm, EfiResetShutdown, EfiResetPlatformSpecific };

struct EFI_CAPSULE_HEADER;

struct EFI_RUNTIME_SERVICES {
  EFI_TABLE_HEADER Hdr;
  EFI_STATUS(EFIAPI* GetTime)(EFI_TIME* Time, EFI_TIME_CAPABILITIES* Capabilities);
  EFI_STATUS(EFIAPI* SetTime)(EFI_TIME* Time);
  EFI_STATUS(EFIAPI* GetWakeupTime)(BOOLEAN* Enabled, BOOLEAN* Pending, EFI_TIME* Time);
  EFI_STATUS(EFIAPI* SetWakeupTime)(BOOLEAN Enable, EFI_TIME* Time);
  EFI_STATUS(EFIAPI* SetVirtualAddressMap)
  (UINTN MemoryMapSize, UINTN DescriptorSize, UINT32 DescriptorVersion, EFI_MEMORY_DESCRIPTOR* VirtualMap);
  EFI_STATUS(EFIAPI* ConvertPointer)(UINTN DebugDisposition, VOID** Address);
  EFI_STATUS(EFIAPI* GetVariable)
  (const CHAR16* VariableName, const EFI_GUID* VendorGuid, UINT32* Attributes, UINTN* DataSize, VOID* Data);
  EFI_STATUS(EFIAPI* GetNextVariableName)(UINTN* VariableNameSize, CHAR16* VariableName, EFI_GUID* VendorGuid);
  EFI_STATUS(EFIAPI* SetVariable)
  (const CHAR16* VariableName, const EFI_GUID* VendorGuid, UINT32 Attributes, UINTN DataSize, const VOID* Data);
  EFI_STATUS(EFIAPI* GetNextHighMonotonicCount)(UINT32* HighCount);
  VOID(EFIAPI* ResetSystem)(EFI_RESET_TYPE ResetType, EFI_STATUS ResetStatus, UINTN DataSize, VOID* ResetData);
  EFI_STATUS(EFIAPI* UpdateCapsule)
  (EFI_CAPSULE_HEADER** CapsuleHeaderArray, UINTN CapsuleCount, EFI_PHYSICAL_ADDRESS ScatterGatherList);
  EFI_STATUS(EFIAPI* QueryCapsuleCapabilities)
  (EFI_CAPSULE_HEADER** CapsuleHeaderArray, UINTN CapsuleCount, UINT64* MaximumCapsuleSize, EFI_RESET_TYPE* ResetType);
  EFI_STATUS(EFIAPI* QueryVariableInfo)
  (UINT32 Attributes, UINT64* MaximumVariableStorageSize, UINT64* RemainingVariableStorageSize,
   UINT64* MaximumVariableSize);
};
static_assert(offsetof(EFI_RUNTIME_SERVICES, GetVariable) == 72);
static_assert(offsetof(EFI_RUNTIME_SERVICES, SetVariable) == 88);
static_assert(offsetof(EFI_RUNTIME_SERVICES, ResetSystem) == 104);
static_assert(sizeof(EFI_RUNTIME_SERVICES) == 136);
