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
constexpr std::uint64_t kRootFlags = 0x1F2;
constexpr std::uint64_t kVideoMode = 0x1FA;
constexpr std::uint64_t kSignature = 0x202;
constexpr std::uint64_t kTypeOfLoader = 0x210;
constexpr std::uint64_t kInitrdSize = 0x21C;
constexpr std::uint64_t kCommandLine = 0x228;
constexpr std::uint64_t kPageEnd = 0x1000;
constexpr char kSignatureText[] = "HdrS";
constexpr std::uint8_t kEfiStub = 0x21;  // a type of loader

constexpr std::size_t kMaxCommandLine = 64 * 1024;
constexpr std::uint64_t kBelowOneMiB = 1 << 20;

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

bool Printable(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= ' '; });
}

// A loader that moves everything to its place at the very end keeps the parameters and the command line in one piece
// until then: the text lies as far behind them as it will, by whole pages.
std::optional<std::string> TextBehind(std::uint64_t parameters, const EFI_MEMORY_DESCRIPTOR& range) {
  constexpr std::uint64_t kPieceSize = 16 * kPageSize;
  for (std::uint64_t at = parameters + kPageEnd; at < std::min(EndOf(range), parameters + kPieceSize);
       at += kPageSize) {
    const auto text = TextIn(at, static_cast<std::size_t>(EndOf(range) - at));
    if (text && Printable(*text)) {
      return text;
    }
  }
  return std::nullopt;
}

// What the zero page at that address, of which the range holds all, says; nothing when it names no command line.
std::optional<LinuxBootParameters> ParametersAt(std::uint64_t zeroPage, const EFI_MEMORY_DESCRIPTOR& range,
                                                std::span<const EFI_MEMORY_DESCRIPTOR> map, const PoolAllocator& pool) {
  const std::uint64_t at = Read<std::uint32_t>(zeroPage + kCommandLine) |
                           std::uint64_t{Read<std::uint32_t>(zeroPage + kCommandLineHigh)} << 32;
  if (at == 0 || Read<std::uint8_t>(zeroPage + kTypeOfLoader) == 0) {
    return std::nullopt;  // a kernel's file begins alike
  }
  auto commandLine = TextAt(at, map, pool);
  if (!commandLine && at < kBelowOneMiB) {
    commandLine = TextBehind(zeroPage, range);
  }
  if (!commandLine) {
    return std::nullopt;
  }
  return LinuxBootParameters{*commandLine, Read<std::uint32_t>(zeroPage + kInitrdSize) |
                                               std::uint64_t{Read<std::uint32_t>(zeroPage + kInitrdSizeHigh)} << 32};
}

// A zero page that a loader made of the header in the kernel's file has that header's signature.
std::optional<LinuxBootParameters> SignedParameters(const EFI_MEMORY_DESCRIPTOR& range,
                                                    std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                                    const PoolAllocator& pool) {
  std::uint64_t from = range.PhysicalStart + kSignature;
  while (from < EndOf(range)) {
    const void* found =
        memmem(reinterpret_cast<const void*>(from), EndOf(range) - from, kSignatureText, sizeof(kSignatureText) - 1);
    if (found == nullptr) {
      return std::nullopt;
    }
    const std::uint64_t zeroPage = reinterpret_cast<std::uint64_t>(found) - kSignature;
    if (EndOf(range) - zeroPage < kPageEnd) {
      return std::nullopt;
    }
    if (auto parameters = ParametersAt(zeroPage, range, map, pool)) {
      return parameters;
    }
    from = reinterpret_cast<std::uint64_t>(found) + 1;
  }
  return std::nullopt;
}

// The kernel's own stub makes one without it, on a page's start, and always says the same of the screen and the root.
std::optional<LinuxBootParameters> StubsParameters(const EFI_MEMORY_DESCRIPTOR& range,
                                                   std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                                   const PoolAllocator& pool) {
  for (std::uint64_t page = range.PhysicalStart; page < EndOf(range); page += kPageSize) {
    const bool ofStub = Read<std::uint8_t>(page + kTypeOfLoader) == kEfiStub &&
                        Read<std::uint16_t>(page + kVideoMode) == 0xFFFF && Read<std::uint16_t>(page + kRootFlags) == 1;
    if (auto parameters = ofStub ? ParametersAt(page, range, map, pool) : std::nullopt) {
      return parameters;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<LinuxBootParameters> FindLinuxBootParameters(std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                                           const PoolAllocator& pool) {
  for (const EFI_MEMORY_DESCRIPTOR& range : map) {
    if (range.Type != EfiLoaderData && range.Type != EfiLoaderCode) {
      continue;
    }
    if (auto parameters = StubsParameters(range, map, pool)) {
      return parameters;
    }
    if (auto parameters = SignedParameters(range, map, pool)) {
      return parameters;
    }
  }
  return std::nullopt;
}

}  // namespace sim
