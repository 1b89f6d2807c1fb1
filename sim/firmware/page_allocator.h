// Pages of 4 KiB from a fixed range below 4 GiB, and the memory map that describes them.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "platform/boot_services.h"
#include "sim/firmware/low_arena.h"

namespace sim {

inline constexpr std::uint64_t kPageSize = 4096;

class PageAllocator {
 public:
  static constexpr std::uintptr_t kBase = 0x30000000;
  static constexpr std::size_t kSize = 512 * 1024 * 1024;

  PageAllocator();
  ~PageAllocator();
  PageAllocator(const PageAllocator&) = delete;
  PageAllocator& operator=(const PageAllocator&) = delete;

  // The AllocatePages and FreePages services (UEFI 2.10, 7.2).
  EFI_STATUS Allocate(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memoryType, std::uint64_t pages,
                      EFI_PHYSICAL_ADDRESS* memory);
  EFI_STATUS Free(EFI_PHYSICAL_ADDRESS memory, std::uint64_t pages);

  // The whole map: the allocations and the free memory between them, in address order.
  std::vector<EFI_MEMORY_DESCRIPTOR> Map() const;
  // Changes with every allocation and release.
  std::uint64_t MapKey() const { return key_; }
  std::uint64_t PagesInUse() const;

 private:
  struct Run {
    std::uint64_t pages;
    EFI_MEMORY_TYPE type;
  };
  bool FindGap(std::uint64_t pages, std::uintptr_t limit, std::uintptr_t& address) const;
  bool IsFree(std::uintptr_t address, std::uint64_t pages) const;

  FixedRange& range_;
  std::map<std::uintptr_t, Run> runs_;
  std::uint64_t key_ = 1;
};

}  // namespace sim
