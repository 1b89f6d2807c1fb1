// The firmware's performance records, as far as the boot-start time stamp touches them.
#pragma once

#include "platform/uefi_base.h"

inline constexpr CHAR16 kFirmwarePerformanceName[] = u"FPDT_Volatile";
inline constexpr EFI_GUID kFirmwarePerformanceGuid{
    0x01368881, 0xC4AD, 0x4B1D, {0xB6, 0x31, 0xD5, 0x7A, 0x8E, 0xC8, 0xDB, 0x6B}};
inline constexpr UINT32 kPerformanceSignature = 0x54504246;  // "FBPT"

// Found at the 32-bit address in the variable; its signature lies in the four bytes before it.
struct PERFORMANCE_DATA_BLOCK {
  UINT64 Reserved;
  UINT64 BootRecord;   // address of the boot performance record
  UINT64 TimerFactor;  // time = counter * factor / 1,000,000
};
static_assert(sizeof(PERFORMANCE_DATA_BLOCK) == 24);

struct BOOT_PERFORMANCE_RECORD {
  UINT32 Signature;
  UINT32 Length;
  UINT16 Type;  // 2: the basic boot record
  UINT8 RecordLength;
  UINT8 Revision;
  UINT32 Reserved;
  UINT64 ResetEnd;
  UINT64 OsLoaderLoadImageStart;
  UINT64 OsLoaderStartImageStart;
};
static_assert(offsetof(BOOT_PERFORMANCE_RECORD, Type) == 8);
static_assert(offsetof(BOOT_PERFORMANCE_RECORD, OsLoaderStartImageStart) == 32);
