#include "sim/firmware/legacy_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

constexpr std::uintptr_t kPage = 4096;

FixedRange& LegacyRange() {
  static FixedRange range(LegacyMemory::kBase, LegacyMemory::kEnd - LegacyMemory::kBase);
  return range;
}

}  // namespace

// Makes the pages of an access writable for its duration.
struct LegacyMemory::Unlocked {
  Unlocked(LegacyMemory& owner, std::uintptr_t address, std::size_t length)
      : first(address & ~(kPage - 1)), size(((address + length + kPage - 1) & ~(kPage - 1)) - first), memory(owner) {
    mprotect(reinterpret_cast<void*>(first), size, PROT_READ | PROT_WRITE);
  }
  ~Unlocked() {
    for (std::uintptr_t page = first; page < first + size; page += kPage) {
      if (memory.IsLocked(page)) {
        mprotect(reinterpret_cast<void*>(page), kPage, PROT_READ);
      }
    }
  }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;
  std::uintptr_t first;
  std::size_t size;
  LegacyMemory& memory;
};

LegacyMemory::LegacyMemory() : range_(LegacyRange()) { range_.Reset(); }
LegacyMemory::~LegacyMemory() { range_.Reset(); }

bool LegacyMemory::Read(std::uintptr_t address, std::span<std::byte> out) const {
  if (!Contains(address, out.size())) {
    return false;
  }
  std::memcpy(out.data(), reinterpret_cast<const void*>(address), out.size());
  return true;
}

bool LegacyMemory::Write(std::uintptr_t address, std::span<const std::byte> in) {
  if (!Contains(address, in.size())) {
    return false;
  }
  const Unlocked unlocked(*this, address, in.size());
  std::memcpy(reinterpret_cast<void*>(address), in.data(), in.size());
  return true;
}

bool LegacyMemory::Fill(std::uintptr_t address, std::size_t length, std::byte value) {
  if (!Contains(address, length)) {
    return false;
  }
  const Unlocked unlocked(*this, address, length);
  std::memset(reinterpret_cast<void*>(address), std::to_integer<int>(value), length);
  return true;
}

std::optional<std::string> LegacyMemory::Text(std::uintptr_t address, std::size_t limit) const {
  std::string text;
  for (; text.size() < limit; ++address) {
    if (!Contains(address)) {
      return std::nullopt;
    }
    const char character = *reinterpret_cast<const char*>(address);
    if (character == 0) {
      break;
    }
    text.push_back(character);
  }
  return text;
}

std::span<std::byte> LegacyMemory::At(std::uintptr_t address, std::size_t length) {
  return Contains(address, length) ? std::span(reinterpret_cast<std::byte*>(address), length) : std::span<std::byte>{};
}

std::optional<std::uintptr_t> LegacyMemory::Allocate(std::size_t size, std::size_t alignment, Area area) {
  std::uintptr_t& next = area == Area::Low ? nextLow_ : nextHigh_;
  const std::uintptr_t end = area == Area::Low ? kLowEnd : kHighEnd;
  const std::uintptr_t start = (next + alignment - 1) & ~(static_cast<std::uintptr_t>(alignment) - 1);
  if (size > end - next || start > end - size) {
    return std::nullopt;
  }
  next = start + size;
  return start;
}

void LegacyMemory::SetWritable(std::uintptr_t address, std::size_t length, bool writable) {
  const std::uintptr_t last = std::min(address + length, kEnd);
  for (std::uintptr_t page = std::max(address & ~(kPage - 1), kBase); page < last; page += kPage) {
    const std::uint64_t bit = std::uint64_t{1} << (page / kPage % 64);
    std::uint64_t& word = locked_[page / kPage / 64];
    word = writable ? word & ~bit : word | bit;
    mprotect(reinterpret_cast<void*>(page), kPage, writable ? PROT_READ | PROT_WRITE : PROT_READ);
  }
}

bool LegacyMemory::IsLocked(std::uintptr_t address) const {
  return address < kEnd && (locked_[address / kPage / 64] >> (address / kPage % 64) & 1) != 0;
}

}  // namespace sim
