// The ATA identify data of a disk (ACS-3, 7.12).
#pragma once

#include "platform/uefi_base.h"
#include "support/pool.h"

namespace bds {

inline constexpr UINTN kIdentifySize = 512;
inline constexpr UINTN kModelOffset = 27 * sizeof(UINT16);
inline constexpr UINTN kSerialOffset = 10 * sizeof(UINT16);
inline constexpr UINTN kSerialLength = 20;

// In pool memory; null when the handle has none of exactly this size.
[[nodiscard]] PoolPtr<UINT8> ReadIdentifyData(EFI_HANDLE handle);

}  // namespace bds
