// Boot-services pool with owners. Each block is its own allocation of the host, so that AddressSanitizer sees overruns;
// the pool knows every block, so that a foreign or twice-freed pointer is told apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "platform/boot_services.h"

namespace sim {

class Counters;

// Bytes that may hold pointers into the pool.
using MemoryExtent = std::span<const std::byte>;

class PoolAllocator {
 public:
  struct Block {
    std::size_t size = 0;
    EFI_MEMORY_TYPE type = EfiBootServicesData;
    EFI_HANDLE owner = nullptr;
    std::uint64_t serial = 0;  // the how-manieth allocation of the boot it was, from 1
  };
  struct Leak {
    const void* address = nullptr;
    Block block;
  };

  explicit PoolAllocator(Counters& counters) : counters_(counters) {}
  ~PoolAllocator();
  PoolAllocator(const PoolAllocator&) = delete;
  PoolAllocator& operator=(const PoolAllocator&) = delete;

  // Bytes that all blocks together may take; beyond it Allocate gives null.
  void SetLimit(std::size_t bytes) { limit_ = bytes; }
  // A block filled with 0xAF, or null when the pool is exhausted.
  void* Allocate(EFI_MEMORY_TYPE type, std::size_t size, EFI_HANDLE owner);
  // EFI_INVALID_PARAMETER, with a complaint, for a pointer that is no block's start.
  EFI_STATUS Free(void* address);
  // The block starting there; null when there is none.
  const Block* Find(const void* address) const;

  std::size_t InUse() const { return inUse_; }
  std::size_t Peak() const { return peak_; }
  std::size_t Count() const { return blocks_.size(); }
  std::size_t InUseBy(EFI_HANDLE owner) const;

  // The owner's blocks that no pointer in the roots reaches, directly or through other blocks. Conservative: any
  // aligned word that points into a block counts as a pointer.
  std::vector<Leak> Unreachable(EFI_HANDLE owner, const std::vector<MemoryExtent>& roots) const;

 private:
  Counters& counters_;
  std::map<std::uintptr_t, Block> blocks_;
  std::size_t limit_ = std::size_t{1} << 32;
  std::size_t inUse_ = 0;
  std::size_t peak_ = 0;
  std::uint64_t serial_ = 0;
};

}  // namespace sim
