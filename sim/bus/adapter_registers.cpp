#include "sim/bus/adapter_registers.h"

#include <algorithm>
#include <optional>

namespace sim {
namespace {

// A family's registers, 32 bits each.
struct Layout {
  std::uint64_t port;
  unsigned portShift;
  std::uint64_t control;
  unsigned wordShift;
  std::uint32_t wordMask;
  std::uint32_t start;
  std::uint32_t done;
  std::uint64_t data;  // the word is in its upper half
};
constexpr Layout kLayouts[] = {
    {.port = 0x8,
     .portShift = 2,
     .control = 0x14,
     .wordShift = 2,
     .wordMask = 0x3FFF,
     .start = 1,
     .done = 2,
     .data = 0x14},
    {.port = 0x8,
     .portShift = 2,
     .control = 0x10014,
     .wordShift = 2,
     .wordMask = 0x3FFF,
     .start = 1,
     .done = 2,
     .data = 0x10014},
    {.port = 0x3F100,
     .portShift = 0,
     .control = 0xB6110,
     .wordShift = 14,
     .wordMask = 0x7FFF,
     .start = 1U << 30,
     .done = 1U << 31,
     .data = 0xB6114},
};
const Layout& LayoutOf(NvmFamily family) { return kLayouts[static_cast<std::size_t>(family)]; }

constexpr std::uint16_t kEmpty = 0xFFFF;
constexpr std::uint32_t kI350Sections[] = {0x00, 0x80, 0xC0, 0x100};
constexpr std::uint32_t kX540Pointers[] = {0x09, 0x0A, 0x0A, 0x0A};
constexpr std::uint32_t kX710Pointer = 0x48;
constexpr std::uint32_t kX710Section = 24;

// Where the address stands, as the registers' words are counted.
std::uint32_t AddressWord(const AdapterNvm& nvm) {
  switch (nvm.family) {
    case NvmFamily::I350:
      return kI350Sections[nvm.port];
    case NvmFamily::X540:
      return nvm.pointer + 1U;
    default:
      return nvm.pointer + kX710Section + 4U * nvm.port + nvm.relative + 1;
  }
}

// The words by which it is found.
std::optional<std::uint16_t> PointerAt(const AdapterNvm& nvm, std::uint32_t word) {
  if (nvm.family == NvmFamily::X540 && word == kX540Pointers[nvm.port]) return nvm.pointer;
  if (nvm.family == NvmFamily::X710 && word == kX710Pointer) return nvm.pointer;
  if (nvm.family == NvmFamily::X710 && word == nvm.pointer + kX710Section) return nvm.relative;
  return std::nullopt;
}

}  // namespace

std::uint16_t AdapterRegisters::WordAt(std::uint32_t word) const {
  if (const auto pointer = PointerAt(nvm_, word)) return *pointer;
  const std::uint32_t k = word - AddressWord(nvm_);
  if (nvm_.blank || word < AddressWord(nvm_) || k >= 3) return kEmpty;
  return static_cast<std::uint16_t>(nvm_.mac[2 * k] | nvm_.mac[2 * k + 1] << 8);
}

std::uint32_t AdapterRegisters::Register(std::uint64_t offset) const {
  const Layout& layout = LayoutOf(nvm_.family);
  std::uint32_t value = 0;
  if (offset == layout.port) value |= std::uint32_t{nvm_.port} << layout.portShift;
  if (offset == layout.control) value |= (word_ & layout.wordMask) << layout.wordShift | (Done() ? layout.done : 0);
  if (offset == layout.data) value |= Done() ? std::uint32_t{WordAt(word_)} << 16 : 0;
  return value;
}

std::uint64_t AdapterRegisters::Read(std::uint64_t offset, unsigned width) {
  const Layout& layout = LayoutOf(nvm_.family);
  // A look is a read of the byte with the done bit.
  const std::uint64_t doneByte = layout.control + (layout.done > 0xFFFF ? 3 : 0);
  if (offset <= doneByte && doneByte < offset + width) ++looks_;
  std::uint64_t value = 0;
  for (unsigned i = 0; i < width; ++i) {
    const std::uint64_t at = offset + i;
    value |= std::uint64_t{Register(at & ~3ULL) >> (8 * (at & 3)) & 0xFF} << (8 * i);
  }
  return value;
}

void AdapterRegisters::Write(std::uint64_t offset, unsigned width, std::uint64_t value) {
  const Layout& layout = LayoutOf(nvm_.family);
  if (offset != layout.control || width != 4 || (value & layout.start) == 0) return;
  started_ = true;
  looks_ = 0;
  word_ = static_cast<std::uint32_t>(value) >> layout.wordShift & layout.wordMask;
}

PciBar AdapterMemory(const AdapterNvm& nvm) {
  return {.index = 0, .io = false, .size = kAdapterMemorySize, .model = std::make_shared<AdapterRegisters>(nvm)};
}

}  // namespace sim
