// Pages of 4 KiB from fixed regions below 4 GiB, and the memory map that describes them.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "platform/boot_services.h"
#include "sim/firmware/legacy_memory.h"
#include "sim/firmware/low_arena.h"

namespace sim {

inline constexpr std::uint64_t kPageSize = 4096;
// The step of the memory map's descriptors. Larger than the structure, as on most firmware: whoever steps by its size
// goes astray (UEFI 2.10, 7.2.3).
inline constexpr std::size_t kMemoryDescriptorSize = sizeof(EFI_MEMORY_DESCRIPTOR) + 8;

class PageAllocator {
 public:
  // Where boots find their memory. Code below its end is an image's.
  static constexpr std::uintptr_t kBase = 0x30000000;
  static constexpr std::size_t kSize = 512 * 1024 * 1024;

  // The conventional memory, in the order in which it is given out: the first region serves who does not care, the
  // others who asks for an address or for one below a limit, as loaders do for a kernel and its real-mode part.
  struct Region {
    std::uintptr_t base;
    std::size_t size;
  };
  static constexpr std::array<Region, 3> kRegions{{
      {kBase, kSize},
      {0x01000000, LowArena::kBase - 0x01000000},
      {LegacyMemory::kPagesBase, LegacyMemory::kPagesEnd - LegacyMemory::kPagesBase},
  }};

  PageAllocator();
  ~PageAllocator();
  PageAllocator(const PageAllocator&) = delete;
  PageAllocator& operator=(const PageAllocator&) = delete;

  // The AllocatePages and FreePages services (UEFI 2.10, 7.2).
  EFI_STATUS Allocate(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memoryType, std::uint64_t pages,
                      EFI_PHYSICAL_ADDRESS* memory);
  EFI_STATUS Free(EFI_PHYSICAL_ADDRESS memory, std::uint64_t pages);
  // Until they are freed, code in these pages runs.
  static void MakeExecutable(EFI_PHYSICAL_ADDRESS memory, std::uint64_t pages);

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
  bool FindGap(const Region& region, std::uint64_t pages, std::uintptr_t limit, std::uintptr_t& address) const;
  bool FindGap(std::uint64_t pages, std::uintptr_t limit, std::uintptr_t& address) const;
  void AddRegion(const Region& region, std::vector<EFI_MEMORY_DESCRIPTOR>& map) const;
  bool IsFree(std::uintptr_t address, std::uint64_t pages) const;

  FixedRange& range_;  // the first region's; the second one's. The third lies in the real-mode memory
  FixedRange& lowRange_;
  std::map<std::uintptr_t, Run> runs_;
  std::uint64_t key_ = 1;
};

}  // namespace sim
