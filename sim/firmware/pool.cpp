#include "sim/firmware/pool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>

#include "sim/firmware/counters.h"

namespace sim {
namespace {

constexpr int kFreshByte = 0xAF;

// Reads words that may lie on an abandoned stack, whose red zones AddressSanitizer would object to.
__attribute__((no_sanitize("address", "undefined"))) std::uintptr_t RawWord(const std::byte* at) {
  return *reinterpret_cast<const volatile std::uintptr_t*>(at);
}

}  // namespace

PoolAllocator::~PoolAllocator() {
  for (const auto& [address, block] : blocks_) {
    std::free(reinterpret_cast<void*>(address));
  }
}

void* PoolAllocator::Allocate(EFI_MEMORY_TYPE type, std::size_t size, EFI_HANDLE owner) {
  if (size > limit_ - std::min(limit_, inUse_)) {
    return nullptr;
  }
  void* memory = std::malloc(std::max<std::size_t>(size, 1));
  if (memory == nullptr) {
    return nullptr;
  }
  std::memset(memory, kFreshByte, size);
  blocks_[reinterpret_cast<std::uintptr_t>(memory)] = {size, type, owner, ++serial_};
  inUse_ += size;
  peak_ = std::max(peak_, inUse_);
  return memory;
}

EFI_STATUS PoolAllocator::Free(void* address) {
  const auto found = blocks_.find(reinterpret_cast<std::uintptr_t>(address));
  if (found == blocks_.end()) {
    counters_.Complain("FreePool of what is no pool block (freed twice?)");  // no address: a report repeats
    return EFI_INVALID_PARAMETER;
  }
  inUse_ -= found->second.size;
  blocks_.erase(found);
  std::free(address);
  return EFI_SUCCESS;
}

const PoolAllocator::Block* PoolAllocator::Find(const void* address) const {
  const auto found = blocks_.find(reinterpret_cast<std::uintptr_t>(address));
  return found == blocks_.end() ? nullptr : &found->second;
}

std::size_t PoolAllocator::InUseBy(EFI_HANDLE owner) const {
  std::size_t bytes = 0;
  for (const auto& [address, block] : blocks_) {
    bytes += block.owner == owner ? block.size : 0;
  }
  return bytes;
}

std::vector<PoolAllocator::Leak> PoolAllocator::Unreachable(EFI_HANDLE owner,
                                                            const std::vector<MemoryExtent>& roots) const {
  std::set<std::uintptr_t> reached;
  std::vector<MemoryExtent> pending = roots;
  while (!pending.empty()) {
    const MemoryExtent extent = pending.back();
    pending.pop_back();
    const auto start = (reinterpret_cast<std::uintptr_t>(extent.data()) + 7) & ~std::uintptr_t{7};
    const auto end = reinterpret_cast<std::uintptr_t>(extent.data()) + extent.size();
    for (std::uintptr_t at = start; at + sizeof(std::uintptr_t) <= end; at += sizeof(std::uintptr_t)) {
      const std::uintptr_t word = RawWord(reinterpret_cast<const std::byte*>(at));
      auto block = blocks_.upper_bound(word);
      if (block == blocks_.begin()) {
        continue;
      }
      --block;
      if (word - block->first > block->second.size || !reached.insert(block->first).second) {
        continue;
      }
      pending.push_back({reinterpret_cast<const std::byte*>(block->first), block->second.size});
    }
  }
  std::vector<Leak> leaks;
  for (const auto& [address, block] : blocks_) {
    if (block.owner == owner && !reached.contains(address)) {
      leaks.push_back({reinterpret_cast<const void*>(address), block});
    }
  }
  return leaks;
}

}  // namespace sim
