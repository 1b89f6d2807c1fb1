#include "sim/firmware/low_arena.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <new>
#include <stdexcept>

namespace sim {
namespace {

// Mapped once per process and reset per machine: the address must be the same boot after boot.
FixedRange& ArenaRange() {
  static FixedRange range(LowArena::kBase, LowArena::kSize);
  return range;
}

}  // namespace

FixedRange::FixedRange(std::uintptr_t base, std::size_t size) : base_(base), size_(size) {
  void* mapped = mmap(reinterpret_cast<void*>(base), size, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
  if (mapped != reinterpret_cast<void*>(base)) {
    throw std::runtime_error(fmt::format(
        "the simulated machine needs the addresses 0x{:X} to 0x{:X}, which are not to be had", base, base + size - 1));
  }
}

void FixedRange::Reset() {
  void* const base = reinterpret_cast<void*>(base_);
  if (mprotect(base, size_, PROT_READ | PROT_WRITE) != 0 || madvise(base, size_, MADV_DONTNEED) != 0) {
    throw std::runtime_error("the simulated machine's memory cannot be reset");
  }
}

LowArena::LowArena() : range_(ArenaRange()) { range_.Reset(); }

void* LowArena::Allocate() {
  if (Full()) {
    throw std::bad_alloc();
  }
  // The first token is skipped, so that no handle equals the arena's base.
  return reinterpret_cast<void*>(kBase + ++count_ * kTokenSize);
}

std::size_t LowArena::IndexOf(const void* token) const {
  const auto address = reinterpret_cast<std::uintptr_t>(token);
  if (address <= kBase || (address - kBase) % kTokenSize != 0 || (address - kBase) / kTokenSize > count_) {
    return kNone;
  }
  return (address - kBase) / kTokenSize - 1;
}

}  // namespace sim
