// Real-mode memory, 0x1000 to 0x10FFEF, at its true addresses: the driver follows 16-bit segment:offset pointers with
// plain loads. What the CSM keeps there is written through this class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "sim/firmware/low_arena.h"

namespace sim {

class LegacyMemory {
 public:
  static constexpr std::uintptr_t kBase = 0x1000;  // the page at 0 stays unmapped, so that a null pointer faults
  static constexpr std::uintptr_t kEnd = 0x110000;
  static constexpr std::uintptr_t kLast = 0x10FFEF;  // FFFF:FFFF
  // Conventional memory that the page allocator may give out, and the two areas that Allocate serves.
  static constexpr std::uintptr_t kPagesBase = 0x10000;
  static constexpr std::uintptr_t kPagesEnd = 0x80000;
  static constexpr std::uintptr_t kLowBase = 0x80000;
  static constexpr std::uintptr_t kLowEnd = 0xA0000;
  static constexpr std::uintptr_t kHighBase = 0xE0000;
  static constexpr std::uintptr_t kHighEnd = 0x100000;
  enum class Area { Low, High };

  LegacyMemory();
  ~LegacyMemory();
  LegacyMemory(const LegacyMemory&) = delete;
  LegacyMemory& operator=(const LegacyMemory&) = delete;

  // False, and nothing done, when a byte of it lies outside.
  [[nodiscard]] bool Read(std::uintptr_t address, std::span<std::byte> out) const;
  [[nodiscard]] bool Write(std::uintptr_t address, std::span<const std::byte> in);
  [[nodiscard]] bool Fill(std::uintptr_t address, std::size_t length, std::byte value);
  // An ASCII text up to its NUL, at most `limit` characters; nothing when it leaves the memory before that.
  std::optional<std::string> Text(std::uintptr_t address, std::size_t limit = 256) const;
  // Bytes in place; empty when a byte of it lies outside.
  std::span<std::byte> At(std::uintptr_t address, std::size_t length);

  // The address of `size` zeroed bytes in that area, aligned to `alignment` (a power of two); nothing when full.
  std::optional<std::uintptr_t> Allocate(std::size_t size, std::size_t alignment = 16, Area area = Area::High);

  // Write protection in whole 4 KiB pages, as the legacy region protocol switches it. Write and Fill pass it by; a
  // store by the driver into locked memory ends the boot as a crash that names the address.
  void SetWritable(std::uintptr_t address, std::size_t length, bool writable);
  bool IsLocked(std::uintptr_t address) const;

  static constexpr std::uint32_t SegmentOffset(std::uint32_t address) {
    return ((address & 0xFFFF0) << 12) | (address & 0xF);
  }
  static constexpr std::uintptr_t Linear(std::uint16_t segment, std::uint16_t offset) {
    return (std::uintptr_t{segment} << 4) + offset;
  }
  static constexpr bool Contains(std::uintptr_t address, std::size_t length = 1) {
    return address >= kBase && length <= kLast + 1 - kBase && address <= kLast + 1 - length;
  }

 private:
  struct Unlocked;
  FixedRange& range_;
  std::uintptr_t nextLow_ = kLowBase;
  std::uintptr_t nextHigh_ = kHighBase;
  std::uint64_t locked_[(kEnd >> 12) / 64 + 1] = {};
};

}  // namespace sim
