#include "support/pool.h"

#include "support/memory.h"
#include "support/services.h"

namespace bds {

void* AllocatePool(UINTN size) {
  void* block = nullptr;
  if (EFI_ERROR(BootServices()->AllocatePool(EfiBootServicesData, size, &block))) {
    return nullptr;
  }
  return block;
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
