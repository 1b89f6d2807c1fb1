// The numbers of BootOrder whose variables exist but could not be loaded on this boot (no memory, a failing store).
// They are nobody's to drop: saving puts them back into the order, at the place where they stood.
#pragma once

#include "platform/uefi_base.h"
#include "support/byte_reader.h"
#include "support/number_set.h"
#include "support/pool.h"

namespace bds {

struct BOOT_OPTION;

struct UNLOADED_OPTION {
  UINT16 Number;
  UINT32 Priority;  // what the option would have had: it stands before the first option whose priority is not smaller
  const BOOT_OPTION* Before;  // while the priorities are given anew: the loaded option that stood before it, or null
};

enum class UnloadedState : UINT8 {
  Recorded,      // Entries hold every number that was not loaded
  OrderUnread,   // BootOrder may exist but could not be read: nothing of it was loaded
  CannotRecord,  // memory ran out: more numbers than Entries holds were not loaded
};

struct UNLOADED_OPTIONS {
  KeptPtr<UNLOADED_OPTION> Entries;  // grown by loading, freed by saving
  UINTN Count = 0;                   // entries used, in the order of BootOrder
  UINTN Capacity = 0;                // entries that there is room for
  UnloadedState State = UnloadedState::Recorded;
};

// Adds an entry; without memory for it the state tells.
void RecordUnloadedOption(UINT16 number, UINT32 priority);
void RecordUnreadOrder();

// True when every number of BootOrder that has a variable became an option.
[[nodiscard]] bool EveryOptionWasLoaded();
// True when the entries hold every number that was not loaded.
[[nodiscard]] bool EveryUnloadedOptionIsKnown();
// True when the number is one of the entries.
[[nodiscard]] bool IsUnloadedOption(UINT16 number);

// Called around the giving of new priorities: each entry stays behind the option that it stood behind.
void HoldPlacesOfUnloadedOptions();
void RestorePlacesOfUnloadedOptions();

// Where the ledger is not complete, reads BootOrder again and makes an entry of each number that no listed option was
// loaded from. The status of the read, EFI_OUT_OF_RESOURCES without memory; EFI_SUCCESS when the ledger is complete.
[[nodiscard]] EFI_STATUS CompleteUnloadedOptions();

// Frees the entries.
void ForgetUnloadedOptions();

// BootOrder as it is saved: the options' numbers, and between them, where they stood, those that were not loaded. Each
// number comes once, though BootOrder may list it twice.
class OrderBuilder {
 public:
  // Makes room for two numbers of each option of BootOptionList, one more, and all that was not loaded, of which it
  // completes the ledger when it has to.
  // The status of CompleteUnloadedOptions, or EFI_OUT_OF_RESOURCES: an order without those numbers would throw them
  // away.
  [[nodiscard]] EFI_STATUS Begin();
  // Adds the next option; priorities ascend. Behind everything: kUnassigned.
  void Add(UINT16 number, UINT32 priority);
  // The whole order; it lives as long as the builder.
  Bytes Finish();

 private:
  void AddUnloadedUpTo(UINT32 priority);
  void AddOnce(UINT16 number);

  PoolPtr<UINT16> numbers_;
  UINTN count_ = 0;
  NumberSet seen_;
};

}  // namespace bds
