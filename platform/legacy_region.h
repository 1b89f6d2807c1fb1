// The legacy region protocol: write protection of the memory between 0xC0000 and 1 MiB.
#pragma once

#include "platform/uefi_base.h"

struct LEGACY_REGION_PROTOCOL {
  EFI_STATUS(EFIAPI* Decode)(LEGACY_REGION_PROTOCOL* This, UINT32 Start, UINT32 Length, BOOLEAN* On);
  EFI_STATUS(EFIAPI* Lock)(LEGACY_REGION_PROTOCOL* This, UINT32 Start, UINT32 Length, UINT32* Granularity);
  EFI_STATUS(EFIAPI* BootLock)(LEGACY_REGION_PROTOCOL* This, UINT32 Start, UINT32 Length, UINT32* Granularity);
  EFI_STATUS(EFIAPI* UnLock)(LEGACY_REGION_PROTOCOL* This, UINT32 Start, UINT32 Length, UINT32* Granularity);
};
static_assert(offsetof(LEGACY_REGION_PROTOCOL, Lock) == 8);
static_assert(offsetof(LEGACY_REGION_PROTOCOL, UnLock) == 24);

template <>
inline constexpr EFI_GUID ProtocolGuid<LEGACY_REGION_PROTOCOL>{
    0x70101EAF, 0x0085, 0x440C, {0xB3, 0x56, 0x8E, 0xE3, 0x6F, 0xEF, 0x24, 0xF0}};
