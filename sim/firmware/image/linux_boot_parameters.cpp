#include "sim/firmware/image/linux_boot_parameters.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "sim/firmware/page_allocator.h"

namespace sim {
namespace {

// Offsets into the zero page, and what stands there.
constexpr std::uint64_t kInitrdSizeHigh = 0x0C4;
constexpr std::uint64_t kCommandLineHigh = 0x0C8;
constexpr std::uint64_t kBootFlag = 0x1FE;
constexpr std::uint64_t kSignature = 0x202;
constexpr std::uint64_t kInitrdSize = 0x21C;
constexpr std::uint64_t kCommandLine = 0x228;
constexpr std::uint16_t kBootFlagValue = 0xAA55;
constexpr std::uint32_t kSignatureValue = 0x53726448;  // "HdrS"

constexpr std::size_t kMaxCommandLine = 64 * 1024;

template <typename Value>
Value Read(std::uint64_t address) {
  Value value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof(value));
  return value;
}

std::uint64_t EndOf(const EFI_MEMORY_DESCRIPTOR& range) {
  return range.PhysicalStart + range.NumberOfPages * kPageSize;
}

std::optional<std::string> TextIn(std::uint64_t address, std::size_t room) {
  const auto* text = reinterpret_cast<const char*>(address);
  const std::size_t length = strnlen(text, std::min(room, kMaxCommandLine));
  return length == room ? std::nullopt : std::optional(std::string(text, length));
}

// The text at an address of allocated memory, up to its NUL; nothing when it leaves that memory first.
std::optional<std::string> TextAt(std::uint64_t address, std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                  const PoolAllocator& pool) {
  if (const PoolAllocator::Block* block = pool.Find(reinterpret_cast<const void*>(address))) {
    return TextIn(address, block->size);
  }
  for (const EFI_MEMORY_DESCRIPTOR& range : map) {
    if (range.Type == EfiConventionalMemory || address < range.PhysicalStart || address >= EndOf(range)) {
      continue;
    }
    return TextIn(address, static_cast<std::size_t>(EndOf(range) - address));
  }
  return std::nullopt;
}

// The parameters on that page, if it holds any. A kernel's file begins alike, with no command line yet.
std::optional<LinuxBootParameters> ParametersOn(std::uint64_t page, std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                                const PoolAllocator& pool) {
  if (Read<std::uint16_t>(page + kBootFlag) != kBootFlagValue ||
      Read<std::uint32_t>(page + kSignature) != kSignatureValue) {
    return std::nullopt;
  }
  const std::uint64_t at =
      Read<std::uint32_t>(page + kCommandLine) | std::uint64_t{Read<std::uint32_t>(page + kCommandLineHigh)} << 32;
  const auto commandLine = at == 0 ? std::nullopt : TextAt(at, map, pool);
  if (!commandLine) {
    return std::nullopt;
  }
  return LinuxBootParameters{*commandLine, Read<std::uint32_t>(page + kInitrdSize) |
                                               std::uint64_t{Read<std::uint32_t>(page + kInitrdSizeHigh)} << 32};
}

}  // namespace

std::optional<LinuxBootParameters> FindLinuxBootParameters(std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                                           const PoolAllocator& pool) {
  for (const EFI_MEMORY_DESCRIPTOR& range : map) {
    if (range.Type != EfiLoaderData && range.Type != EfiLoaderCode) {
      continue;
    }
    for (std::uint64_t page = range.PhysicalStart; page < EndOf(range); page += kPageSize) {
      if (const auto parameters = ParametersOn(page, map, pool)) {
        return parameters;
      }
    }
  }
  return std::nullopt;
}

}  // namespace sim
