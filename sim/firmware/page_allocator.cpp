#include "sim/firmware/page_allocator.h"

#include <sys/mman.h>

#include <algorithm>

namespace sim {
namespace {

FixedRange& PageRange() {
  static FixedRange range(PageAllocator::kBase, PageAllocator::kSize);
  return range;
}
FixedRange& LowPageRange() {
  static FixedRange range(PageAllocator::kRegions[1].base, PageAllocator::kRegions[1].size);
  return range;
}

EFI_MEMORY_DESCRIPTOR Describe(EFI_MEMORY_TYPE type, std::uintptr_t start, std::uint64_t pages) {
  constexpr std::uint64_t kWriteBack = 0x8;
  return {type, 0, start, 0, pages, kWriteBack};
}

}  // namespace

PageAllocator::PageAllocator() : range_(PageRange()), lowRange_(LowPageRange()) {
  range_.Reset();
  lowRange_.Reset();
}
PageAllocator::~PageAllocator() {
  range_.Reset();
  lowRange_.Reset();
}

bool PageAllocator::IsFree(std::uintptr_t address, std::uint64_t pages) const {
  const auto holds = [&](const Region& region) {
    const std::uint64_t room = region.size / kPageSize;
    return address >= region.base && pages <= room && (address - region.base) / kPageSize <= room - pages;
  };
  if (address % kPageSize != 0 || std::none_of(kRegions.begin(), kRegions.end(), holds)) {
    return false;
  }
  const std::uintptr_t end = address + pages * kPageSize;
  return std::none_of(runs_.begin(), runs_.end(), [&](const auto& run) {
    return run.first < end && run.first + run.second.pages * kPageSize > address;
  });
}

bool PageAllocator::FindGap(const Region& region, std::uint64_t pages, std::uintptr_t limit,
                            std::uintptr_t& address) const {
  std::uintptr_t start = region.base;
  const auto end = runs_.lower_bound(region.base + region.size);
  for (auto run = runs_.lower_bound(region.base); run != end; ++run) {
    if (run->first - start >= pages * kPageSize) {
      break;
    }
    start = run->first + run->second.pages * kPageSize;
  }
  address = start;
  return IsFree(start, pages) && start + pages * kPageSize - 1 <= limit;
}

bool PageAllocator::FindGap(std::uint64_t pages, std::uintptr_t limit, std::uintptr_t& address) const {
  return std::any_of(kRegions.begin(), kRegions.end(),
                     [&](const Region& region) { return FindGap(region, pages, limit, address); });
}

EFI_STATUS PageAllocator::Allocate(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memoryType, std::uint64_t pages,
                                   EFI_PHYSICAL_ADDRESS* memory) {
  const bool knownType = memoryType < EfiMaxMemoryType || memoryType >= 0x70000000;
  if (memory == nullptr || type >= MaxAllocateType || !knownType || memoryType == EfiConventionalMemory) {
    return EFI_INVALID_PARAMETER;
  }
  if (pages == 0 || pages > kSize / kPageSize) {
    return EFI_OUT_OF_RESOURCES;
  }
  std::uintptr_t address = *memory;
  if (type == AllocateAddress) {
    if (!IsFree(address, pages)) {
      return EFI_NOT_FOUND;
    }
  } else if (!FindGap(pages, type == AllocateMaxAddress ? *memory : UINTPTR_MAX, address)) {
    return EFI_OUT_OF_RESOURCES;
  }
  runs_[address] = {pages, memoryType};
  ++key_;
  *memory = address;
  return EFI_SUCCESS;
}

EFI_STATUS PageAllocator::Free(EFI_PHYSICAL_ADDRESS memory, std::uint64_t pages) {
  if (memory % kPageSize != 0 || pages == 0 || pages > kSize / kPageSize) {
    return EFI_INVALID_PARAMETER;
  }
  auto run = runs_.upper_bound(memory);
  if (run == runs_.begin()) {
    return EFI_NOT_FOUND;
  }
  --run;
  const std::uintptr_t base = run->first;
  const Run whole = run->second;
  const std::uint64_t before = (memory - base) / kPageSize;
  if (before + pages > whole.pages) {
    return EFI_NOT_FOUND;
  }
  runs_.erase(run);
  if (before != 0) {
    runs_[base] = {before, whole.type};
  }
  if (before + pages < whole.pages) {
    runs_[memory + pages * kPageSize] = {whole.pages - before - pages, whole.type};
  }
  // What was freed reads as zeros again and is writable, whatever an image made of it.
  mprotect(reinterpret_cast<void*>(memory), pages * kPageSize, PROT_READ | PROT_WRITE);
  madvise(reinterpret_cast<void*>(memory), pages * kPageSize, MADV_DONTNEED);
  ++key_;
  return EFI_SUCCESS;
}

void PageAllocator::MakeExecutable(EFI_PHYSICAL_ADDRESS memory, std::uint64_t pages) {
  mprotect(reinterpret_cast<void*>(memory), pages * kPageSize, PROT_READ | PROT_WRITE | PROT_EXEC);
}

void PageAllocator::AddRegion(const Region& region, std::vector<EFI_MEMORY_DESCRIPTOR>& map) const {
  std::uintptr_t next = region.base;
  const auto addFree = [&](std::uintptr_t end) {
    if (end > next) {
      map.push_back(Describe(EfiConventionalMemory, next, (end - next) / kPageSize));
    }
  };
  const auto end = runs_.lower_bound(region.base + region.size);
  for (auto run = runs_.lower_bound(region.base); run != end; ++run) {
    addFree(run->first);
    map.push_back(Describe(run->second.type, run->first, run->second.pages));
    next = run->first + run->second.pages * kPageSize;
  }
  addFree(region.base + region.size);
}

std::vector<EFI_MEMORY_DESCRIPTOR> PageAllocator::Map() const {
  std::vector<EFI_MEMORY_DESCRIPTOR> map;
  for (auto region = kRegions.rbegin(); region != kRegions.rend(); ++region) {  // by address
    AddRegion(*region, map);
  }
  return map;
}

std::uint64_t PageAllocator::PagesInUse() const {
  std::uint64_t pages = 0;
  for (const auto& [base, run] : runs_) {
    pages += run.pages;
  }
  return pages;
}

}  // namespace sim
