// The system table (UEFI 2.10, 4.3) and the configuration tables found through it.
#pragma once

#include "platform/boot_services.h"
#include "platform/runtime_services.h"

struct EFI_SIMPLE_TEXT_INPUT_PROTOCOL;
struct EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL;

struct EFI_CONFIGURATION_TABLE {
  EFI_GUID VendorGuid;
  VOID* VendorTable;
};
static_assert(sizeof(EFI_CONFIGURATION_TABLE) == 24);

struct EFI_SYSTEM_TABLE {
  EFI_TABLE_HEADER Hdr;
  CHAR16* FirmwareVendor;
  UINT32 FirmwareRevision;
  UINT32 Pad;
  EFI_HANDLE ConsoleInHandle;
  EFI_SIMPLE_TEXT_INPUT_PROTOCOL* ConIn;
  EFI_HANDLE ConsoleOutHandle;
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* ConOut;
  EFI_HANDLE StandardErrorHandle;
  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* StdErr;
  EFI_RUNTIME_SERVICES* RuntimeServices;
  EFI_BOOT_SERVICES* BootServices;
  UINTN NumberOfTableEntries;
  EFI_CONFIGURATION_TABLE* ConfigurationTable;
};
static_assert(offsetof(EFI_SYSTEM_TABLE, FirmwareRevision) == 32);
static_assert(offsetof(EFI_SYSTEM_TABLE, RuntimeServices) == 88);
static_assert(offsetof(EFI_SYSTEM_TABLE, BootServices) == 96);
static_assert(sizeof(EFI_SYSTEM_TABLE) == 120);

// The start of the hand-off block list (PI 1.7, volume 3).
inline constexpr EFI_GUID gEfiHobListGuid{
    0x7739F24C, 0x93D7, 0x11D4, {0x9A, 0x3A, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};
inline constexpr EFI_GUID gEfiDxeServicesTableGuid{
    0x05AD34BA, 0x6F02, 0x4214, {0x95, 0x2E, 0x4D, 0xA0, 0x39, 0x8E, 0x2B, 0xB9}};
