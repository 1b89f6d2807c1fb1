#include "support/legacy_memory.h"

namespace bds {

std::span<char> LegacyBytes(UINT16 segment, UINT16 offset, UINTN maximum) {
  const UINT32 address = UINT32{segment} * 16 + offset;
  if (address < kLegacyMemoryStart || address >= kLegacyMemoryEnd) {
    return {};
  }
  const UINTN room = kLegacyMemoryEnd - address;
  return {reinterpret_cast<char*>(UINTN{address}), room < maximum ? room : maximum};
}

std::span<const char> LegacyString(UINT16 segment, UINT16 offset, UINTN maximum) {
  const std::span<char> bytes = LegacyBytes(segment, offset, maximum);
  UINTN length = 0;
  while (length < bytes.size() && bytes[length] != 0) {
    ++length;
  }
  return bytes.first(length);
}

}  // namespace bds
