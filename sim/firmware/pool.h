// Pool memory. Every block comes from malloc of its own, so AddressSanitizer sees each byte beyond it; what is known
// about a block lies in a table beside it, so a trampled header cannot exist and an unknown pointer is always noticed.
#pragma once

#include <cstdint>
#include <set>
#include <unordered_map>
#include <vector>

#include "platform/boot_services.h"

namespace sim {

class Counters;

struct PoolBlock {
  VOID* address;
  UINTN size;
  EFI_MEMORY_TYPE type;
  EFI_HANDLE owner;      // the image that ran when it was allocated
  std::uint64_t serial;  // the number of this allocation since power-on, from 1: the same in every run
};

class PoolAllocator {
 public:
  explicit PoolAllocator(Counters& counters) : counters_(counters) {}
  ~PoolAllocator();
  PoolAllocator(const PoolAllocator&) = delete;
  PoolAllocator& operator=(const PoolAllocator&) = delete;

  // UEFI 2.10, 7.2. New memory is filled with 0xAF, freed memory too. A size of 0 is allowed.
  EFI_STATUS Allocate(EFI_MEMORY_TYPE type, UINTN size, EFI_HANDLE owner, VOID** buffer);
  // EFI_INVALID_PARAMETER and a complaint for what is no live block: freed before, or never allocated.
  EFI_STATUS Free(VOID* buffer);

  // The live block that begins at, or holds, that address; null when none does.
  const PoolBlock* Find(const VOID* address) const;
  // All live blocks in the order of their allocation.
  std::vector<PoolBlock> Blocks() const;

  std::uint64_t BytesInUse() const { return bytesInUse_; }
  std::uint64_t PeakBytes() const { return peakBytes_; }
  std::uint64_t BytesOwnedBy(EFI_HANDLE owner) const;
  std::size_t BlocksOwnedBy(EFI_HANDLE owner) const;
  // The size above which Allocate answers EFI_OUT_OF_RESOURCES, in bytes in use.
  void SetLimit(std::uint64_t bytes) { limit_ = bytes; }

 private:
  Counters& counters_;
  std::unordered_map<const VOID*, PoolBlock> blocks_;
  std::set<const VOID*> freed_;
  std::uint64_t serial_ = 0;
  std::uint64_t bytesInUse_ = 0;
  std::uint64_t peakBytes_ = 0;
  std::uint64_t limit_ = std::uint64_t{1} << 30;
};

}  // namespace sim
