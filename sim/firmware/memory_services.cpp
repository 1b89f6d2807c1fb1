// Memory services (UEFI 2.10, 7.2) and those that work on bytes (7.5).
#include "sim/firmware/service_call.h"

namespace sim {
namespace {

EFI_STATUS EFIAPI AllocatePages(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memoryType, UINTN pages,
                                EFI_PHYSICAL_ADDRESS* memory) {
  return Call("AllocatePages", [&] {
    const EFI_STATUS status = M().Pages().Allocate(type, memoryType, pages, memory);
    if (!EFI_ERROR(status) && M().OwnerRunsFromData()) {
      PageAllocator::MakeExecutable(*memory, pages);
    }
    return status;
  });
}
EFI_STATUS EFIAPI FreePages(EFI_PHYSICAL_ADDRESS memory, UINTN pages) {
  return Call("FreePages", [&] { return M().Pages().Free(memory, pages); });
}

EFI_STATUS EFIAPI GetMemoryMap(UINTN* size, EFI_MEMORY_DESCRIPTOR* map, UINTN* key, UINTN* descriptorSize,
                               UINT32* version) {
  return Call("GetMemoryMap", [&]() -> EFI_STATUS {
    if (size == nullptr || descriptorSize == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const auto described = M().Pages().Map();
    const UINTN needed = described.size() * kMemoryDescriptorSize;
    const UINTN room = *size;
    *size = needed;
    *descriptorSize = kMemoryDescriptorSize;
    if (version != nullptr) {
      *version = 1;
    }
    if (room < needed) {
      return EFI_BUFFER_TOO_SMALL;
    }
    if (map == nullptr || key == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    auto* at = reinterpret_cast<std::byte*>(map);
    for (const EFI_MEMORY_DESCRIPTOR& each : described) {
      std::memset(at, 0, kMemoryDescriptorSize);
      std::memcpy(at, &each, sizeof(each));
      at += kMemoryDescriptorSize;
    }
    *key = M().Pages().MapKey();
    return EFI_SUCCESS;
  });
}

EFI_STATUS EFIAPI AllocatePool(EFI_MEMORY_TYPE type, UINTN size, VOID** buffer) {
  return Call("AllocatePool", [&]() -> EFI_STATUS {
    const bool knownType = type < EfiMaxMemoryType || type >= 0x70000000;
    if (buffer == nullptr || !knownType || type == EfiConventionalMemory) {
      return EFI_INVALID_PARAMETER;
    }
    *buffer = M().Pool().Allocate(type, size, M().CurrentOwner());
    return *buffer == nullptr ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
  });
}
EFI_STATUS EFIAPI FreePool(VOID* buffer) {
  return Call("FreePool", [&] { return M().Pool().Free(buffer); });
}

EFI_STATUS EFIAPI CalculateCrc32(VOID* data, UINTN size, UINT32* crc) {
  return Call("CalculateCrc32", [&] {
    if (data == nullptr || size == 0 || crc == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *crc = Crc32({static_cast<const std::byte*>(data), size});
    return EFI_SUCCESS;
  });
}
VOID EFIAPI CopyMem(VOID* destination, const VOID* source, UINTN length) {
  CountOnly("CopyMem");
  if (length != 0) {
    std::memmove(destination, source, length);
  }
}
VOID EFIAPI SetMem(VOID* buffer, UINTN size, UINT8 value) {
  CountOnly("SetMem");
  if (size != 0) {
    std::memset(buffer, value, size);
  }
}

}  // namespace

void FillMemoryServices(EFI_BOOT_SERVICES& table) {
  table.AllocatePages = AllocatePages;
  table.FreePages = FreePages;
  table.GetMemoryMap = GetMemoryMap;
  table.AllocatePool = AllocatePool;
  table.FreePool = FreePool;
  table.CalculateCrc32 = CalculateCrc32;
  table.CopyMem = CopyMem;
  table.SetMem = SetMem;
}

}  // namespace sim
