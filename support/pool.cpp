#include "support/pool.h"

#include "support/memory.h"
#include "support/services.h"

namespace bds {

void* AllocatePool(UINTN size) {
  void* block = nullptr;
  if (EFI_ERROR(BootServices()->AllocatePool(EfiBootServicesData, size, &block))) {
    ++gServices.FailedAllocations;
    return nullptr;
  }
  return block;
}

PoolWatch::PoolWatch() : before_(gServices.FailedAllocations) {}

bool PoolWatch::Exhausted() const { return gServices.FailedAllocations != before_; }

EFI_STATUS WatchedStatus(EFI_STATUS status) {
  gServices.FailedAllocations += status == EFI_OUT_OF_RESOURCES ? 1 : 0;
  return status;
}

void* AllocateZeroPool(UINTN size) {
  void* block = AllocatePool(size);
  if (block != nullptr) {
    ZeroMemory(block, size);
  }
  return block;
}

void* AllocateCopyPool(UINTN size, const void* source) {
  void* block = AllocatePool(size);
  if (block != nullptr) {
    CopyMemory(block, source, size);
  }
  return block;
}

void FreePool(void* block) {
  if (block != nullptr) {
    static_cast<void>(BootServices()->FreePool(block));
  }
}

PoolBuffer CopyBytes(std::span<const std::byte> bytes) {
  PoolBuffer copy;
  if (bytes.empty()) {
    return copy;
  }
  copy.Data.reset(static_cast<std::byte*>(AllocateCopyPool(bytes.size(), bytes.data())));
  copy.Size = copy.Data ? bytes.size() : 0;
  return copy;
}

}  // namespace bds
