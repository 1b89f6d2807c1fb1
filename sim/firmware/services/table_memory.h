// Memory for the tables that describe the server to an operating system: at the upper end, away from what boots use.
#pragma once

#include "sim/firmware/machine.h"

namespace sim {

// Whole pages of that type, zero. EFI_OUT_OF_RESOURCES when there are none.
inline EFI_STATUS AllocateTableMemory(Machine& machine, EFI_MEMORY_TYPE type, std::size_t size,
                                      EFI_PHYSICAL_ADDRESS& base) {
  const std::uint64_t pages = (size + kPageSize - 1) / kPageSize;
  for (std::uint64_t end = PageAllocator::kBase + PageAllocator::kSize; end > PageAllocator::kBase; end -= kPageSize) {
    base = end - pages * kPageSize;
    if (!EFI_ERROR(machine.Pages().Allocate(AllocateAddress, type, pages, &base))) {
      return EFI_SUCCESS;
    }
  }
  return EFI_OUT_OF_RESOURCES;
}

}  // namespace sim
