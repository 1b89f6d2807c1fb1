// A list of handles that is kept for the rest of the boot.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Pool memory that the record holds, with room for 64 handles at first and 64 more whenever it is full.
struct HANDLE_LIST {
  EFI_HANDLE* Handles = nullptr;
  UINTN Count = 0;
  UINTN Capacity = 0;

  EFI_HANDLE* begin() const { return Handles; }
  EFI_HANDLE* end() const { return Handles + Count; }
};

// Room for one more handle; EFI_OUT_OF_RESOURCES, the list unchanged, when the pool is exhausted.
[[nodiscard]] EFI_STATUS ReserveHandle(HANDLE_LIST& list);

// Appends the handle unless the list holds it; without memory the list stays as it is.
void AppendHandle(HANDLE_LIST& list, EFI_HANDLE handle);

}  // namespace bds
