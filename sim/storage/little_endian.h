// Integers of on-disk records, read from bytes that may lie at any address. Ranges are the caller's to check.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

namespace sim {

template <typename Integer>
[[nodiscard]] Integer ReadLittle(std::span<const std::byte> bytes, std::size_t offset) {
  Integer value;
  std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
  return value;
}

}  // namespace sim
