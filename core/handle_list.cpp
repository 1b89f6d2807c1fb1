#include "core/handle_list.h"

#include "support/memory.h"
#include "support/pool.h"

namespace bds {
namespace {

constexpr UINTN kGrowth = 64;

bool Contains(const HANDLE_LIST& list, EFI_HANDLE handle) {
  for (EFI_HANDLE each : list) {
    if (each == handle) {
      return true;
    }
  }
  return false;
}

}  // namespace

EFI_STATUS ReserveHandle(HANDLE_LIST& list) {
  if (list.Count < list.Capacity) {
    return EFI_SUCCESS;
  }
  auto larger = AllocateArray<EFI_HANDLE>(list.Capacity + kGrowth);
  if (!larger) {
    return EFI_OUT_OF_RESOURCES;
  }
  CopyMemory(larger.get(), list.Handles, list.Count * sizeof(EFI_HANDLE));
  FreePool(list.Handles);
  list.Handles = larger.release();
  list.Capacity += kGrowth;
  return EFI_SUCCESS;
}

void AppendHandle(HANDLE_LIST& list, EFI_HANDLE handle) {
  if (!Contains(list, handle) && !EFI_ERROR(ReserveHandle(list))) {
    list.Handles[list.Count++] = handle;
  }
}

}  // namespace bds
