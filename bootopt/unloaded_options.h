// The numbers of BootOrder whose variables exist but could not be loaded on this boot (no memory, a failing store).
// They are nobody's to drop: saving puts them back into the order, at the place where they stood.
#pragma once

#include "platform/uefi_base.h"
#include "support/pool.h"

namespace bds {

struct UNLOADED_OPTION {
  UINT16 Number;
  UINT32 Priority;  // what the option would have had: it stands before the first option whose priority is not smaller
};

struct UNLOADED_OPTIONS {
  KeptPtr<UNLOADED_OPTION> Entries;  // room for the whole order; made by loading, freed by saving
  UINTN Count = 0;                   // entries used, priorities ascending
  bool OrderUnread = false;          // BootOrder may exist but could not be read: nothing of it was loaded
};

// Makes room for count entries. EFI_OUT_OF_RESOURCES when the pool is exhausted.
[[nodiscard]] EFI_STATUS PrepareUnloadedOptions(UINTN count);
// Adds an entry; there is room for it.
void AddUnloadedOption(UINT16 number, UINT32 priority);
[[nodiscard]] bool IsUnloadedOption(UINT16 number);

// After OrderUnread: reads BootOrder again, and each of its numbers becomes an entry in front of all options. The
// status of the read; EFI_SUCCESS when the order was loaded, or when there is none after all.
[[nodiscard]] EFI_STATUS ReloadUnreadOrder();

// Frees the entries.
void ForgetUnloadedOptions();

}  // namespace bds
