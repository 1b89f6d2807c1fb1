// Little-endian fields out of bytes that may be cut anywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace sim {

// The value at that offset; nothing when a byte of it lies behind the end.
template <typename T>
std::optional<T> FieldAt(std::span<const std::byte> bytes, std::uint64_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) {
    return std::nullopt;
  }
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

// True when `size` bytes from `offset` lie within `limit`.
constexpr bool Within(std::uint64_t offset, std::uint64_t size, std::uint64_t limit) {
  return offset <= limit && size <= limit - offset;
}

}  // namespace sim
