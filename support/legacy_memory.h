// Real-mode memory: texts that option ROMs and the CSM leave there are reached through segment:offset pointers.
#pragma once

#include <span>

#include "platform/uefi_base.h"

namespace bds {

// Nothing that firmware points at lies in the first page (interrupt vectors and BIOS data), and no real-mode pointer
// reaches past FFFF:FFFF.
inline constexpr UINT32 kLegacyMemoryStart = 0x1000;
inline constexpr UINT32 kLegacyMemoryEnd = 0x10FFF0;

// The bytes at a real-mode pointer up to the end of legacy memory, at most maximum; empty when the pointer is null
// or lies outside legacy memory.
[[nodiscard]] std::span<char> LegacyBytes(UINT16 segment, UINT16 offset, UINTN maximum);

// The same up to, and without, its NUL: the ASCII string there. Empty also for an empty string.
[[nodiscard]] std::span<const char> LegacyString(UINT16 segment, UINT16 offset, UINTN maximum);

}  // namespace bds
