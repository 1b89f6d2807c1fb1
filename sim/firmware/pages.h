// Page memory and the memory map: the simulated server's RAM below 4 GiB and the conventional part of real-mode
// memory, both at their true addresses.
#pragma once

#include <cstdint>
#include <map>

#include "platform/boot_services.h"
#include "sim/firmware/low_arena.h"

namespace sim {

class Counters;

class PageAllocator {
 public:
  static constexpr UINT64 kPageSize = 4096;
  static constexpr std::uintptr_t kRamBase = 0x40000000;
  static constexpr std::size_t kRamSize = 0x20000000;  // 512 MiB, backed only where touched

  explicit PageAllocator(Counters& counters);
  ~PageAllocator();

  // UEFI 2.10, 7.2: the highest free pages that fit the request. Pages are readable, writable and zero.
  EFI_STATUS Allocate(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memoryType, UINTN pages, EFI_HANDLE owner,
                      EFI_PHYSICAL_ADDRESS* memory);
  // Any page-aligned part of what was allocated. Protection set on the pages is undone.
  EFI_STATUS Free(EFI_PHYSICAL_ADDRESS memory, UINTN pages);
  EFI_STATUS GetMemoryMap(UINTN* mapSize, EFI_MEMORY_DESCRIPTOR* map, UINTN* mapKey, UINTN* descriptorSize,
                          UINT32* descriptorVersion) const;

  // Changes with every change of the map; what ExitBootServices compares.
  UINTN MapKey() const { return mapKey_; }
  std::uint64_t PagesOwnedBy(EFI_HANDLE owner) const;
  std::uint64_t PagesInUse() const;

 private:
  struct Region {
    UINT64 pages;
    EFI_MEMORY_TYPE type;
    EFI_HANDLE owner;
  };
  using Regions = std::map<EFI_PHYSICAL_ADDRESS, Region>;

  bool IsFree(EFI_PHYSICAL_ADDRESS address, UINT64 pages) const;
  bool FindBelow(UINT64 pages, EFI_PHYSICAL_ADDRESS last, EFI_PHYSICAL_ADDRESS& found) const;
  void Carve(EFI_PHYSICAL_ADDRESS address, UINT64 pages, const Region& replacement);
  void Split(EFI_PHYSICAL_ADDRESS address);
  void MergeFree();

  Counters& counters_;
  FixedRange& ram_;
  Regions regions_;
  UINTN mapKey_ = 1;
};

}  // namespace sim
