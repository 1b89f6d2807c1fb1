#include "bootopt/saved_order.h"

#include "bootopt/load_option_image.h"
#include "support/number_set.h"

namespace bds {
namespace {

// Puts two rows of numbers into one: that of the options and that of what was not loaded.
class Merger {
 public:
  Merger(UINT16* numbers, NumberSet& seen) : numbers_(numbers), seen_(seen) {}

  // A number counts once: BootOrder may list it twice, and a group's members share their header's.
  void Add(UINT16 number) {
    if (seen_.Insert(number)) {
      numbers_[count_++] = number;
    }
  }
  void AddUnloadedUpTo(UINT32 priority) {
    const UNLOADED_OPTIONS& unloaded = gBootOptions.Unloaded;
    for (; next_ < unloaded.Count && unloaded.Entries[next_].Priority <= priority; ++next_) {
      Add(unloaded.Entries[next_].Number);
    }
  }
  UINTN Count() const { return count_; }

 private:
  UINT16* numbers_;
  NumberSet& seen_;
  UINTN count_ = 0;
  UINTN next_ = 0;  // entry of what was not loaded
};

}  // namespace

bool IsSaved(const BOOT_OPTION& option) {
  return HasSavablePath(option) && option.BootOptionNumber != kNoBootOptionNumber;
}

EFI_STATUS SavedOrder::Build(const BOOT_OPTION_LIST& list) {
  const EFI_STATUS status = CompleteUnloadedOptions();
  if (EFI_ERROR(status)) {
    return status;
  }
  numbers_ = AllocateArray<UINT16>(list.Count + gBootOptions.Unloaded.Count);
  NumberSet seen;
  if (!numbers_ || !seen) {
    return EFI_OUT_OF_RESOURCES;
  }
  Merger merger(numbers_.get(), seen);
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    if (IsSaved(*option)) {
      merger.AddUnloadedUpTo(option->Priority);
      merger.Add(option->BootOptionNumber);
    }
  }
  merger.AddUnloadedUpTo(kUnassigned);
  count_ = merger.Count();
  return EFI_SUCCESS;
}

void SavedOrder::Drop(UINT16 number) {
  UINTN kept = 0;
  for (UINTN i = 0; i < count_; ++i) {
    if (numbers_[i] != number) {
      numbers_[kept++] = numbers_[i];
    }
  }
  count_ = kept;
}

}  // namespace bds
