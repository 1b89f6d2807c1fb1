// Writes every numbered option back as Boot####, and BootOrder behind them. Consumes the options it saves.
#include "bootopt/dumps/dumps.h"
#include "bootopt/load_option_image.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

bool IsSaved(const BOOT_OPTION& option) {
  return HasSavablePath(option) && option.BootOptionNumber != kNoBootOptionNumber;
}

// A full store refuses the write, but may hold the option already, at worst with the attributes and mask of an
// earlier boot. Such an option must not drop out of the order; nor may one of which nothing can be said.
bool StoreHolds(const CHAR16* name, Bytes image) {
  PoolBuffer stored;
  const EFI_STATUS status = ReadVariable(name, gEfiGlobalVariableGuid, stored);
  return EFI_ERROR(status) ? status != EFI_NOT_FOUND : IsSameLoadOption(stored.Bytes(), image);
}

// True when the variable now stands for the option.
bool SaveOption(const BOOT_OPTION& option) {
  const NumberedName name = BootVariableName(option.BootOptionNumber);
  const PoolBuffer image = BuildLoadOptionImage(option);
  if (!image.Data) {
    DebugPrint("%a:No memory for Boot%04X\n", "SaveBootOptions", option.BootOptionNumber);
    return VariableExists(name, gEfiGlobalVariableGuid);  // as it was stored before
  }
  const EFI_STATUS status = WriteVariable(name, gEfiGlobalVariableGuid, kNonVolatileBootRuntime, image.Bytes());
  DebugPrint("Setting Boot option#%04x with size %x\n", option.BootOptionNumber, image.Size);
  DebugPrint("Description: %S\n", option.Description.get());
  if (!EFI_ERROR(status)) {
    return true;
  }
  DebugPrint("%a:Writing Boot%04X failed:%r\n", "SaveBootOptions", option.BootOptionNumber, status);
  return StoreHolds(name, image.Bytes());
}

// Removes the option with its members; returns the option behind them.
BOOT_OPTION* DeleteWithMembers(BOOT_OPTION* option) {
  while (BOOT_OPTION* member = NextMember(*option, *option)) {
    DeleteBootOption(BootOptionList, member);
  }
  BOOT_OPTION* next = option->Next;
  DeleteBootOption(BootOptionList, option);
  return next;
}

// BootOrder as it is put together: what is saved, and between it what could not be loaded.
class OrderBuilder {
 public:
  // The array has room for the whole list and all that was not loaded.
  explicit OrderBuilder(UINT16* numbers) : numbers_(numbers) {}

  void Add(UINT16 number) {
    // A number that was not loaded may have been given to a new option before it was known, or be listed twice.
    if (!IsUnloadedOption(number) || !Contains(number)) {
      numbers_[count_++] = number;
    }
  }
  void AddUnloadedUpTo(UINT32 priority) {
    const UNLOADED_OPTIONS& unloaded = gBootOptions.Unloaded;
    for (; next_ < unloaded.Count && unloaded.Entries[next_].Priority <= priority; ++next_) {
      Add(unloaded.Entries[next_].Number);
    }
  }
  Bytes Result() const { return {reinterpret_cast<const std::byte*>(numbers_), count_ * sizeof(UINT16)}; }

 private:
  bool Contains(UINT16 number) const {
    for (UINTN i = 0; i < count_; ++i) {
      if (numbers_[i] == number) {
        return true;
      }
    }
    return false;
  }

  UINT16* numbers_;
  UINTN count_ = 0;
  UINTN next_ = 0;  // entry of what was not loaded
};

struct SaveCounts {
  UINTN Tried = 0;
  UINTN Saved = 0;
};

SaveCounts SaveAll(OrderBuilder& order) {
  SaveCounts counts;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    if (!IsSaved(*option)) {
      option = option->Next;
      continue;
    }
    ++counts.Tried;
    order.AddUnloadedUpTo(option->Priority);
    if (SaveOption(*option)) {
      order.Add(option->BootOptionNumber);
      ++counts.Saved;
    }
    option = DeleteWithMembers(option);
  }
  order.AddUnloadedUpTo(kUnassigned);
  return counts;
}

void SaveListAndOrder() {
  const EFI_STATUS readStatus = ReloadUnreadOrder();
  if (EFI_ERROR(readStatus)) {
    // An order of this boot's options alone would throw away the others.
    DebugPrint("%a:BootOrder cannot be read, nothing is saved:%r\n", "SaveBootOptions", readStatus);
    return;
  }
  const auto numbers = AllocateArray<UINT16>(BootOptionList.Count + gBootOptions.Unloaded.Count);
  if (!numbers) {
    DebugPrint("%a:No memory for the boot order\n", "SaveBootOptions");
    return;
  }
  OrderBuilder order(numbers.get());
  const SaveCounts counts = SaveAll(order);
  if (counts.Tried != 0 && counts.Saved == 0) {
    // The store takes nothing: an empty order would throw away the one that it still holds.
    DebugPrint("%a:No option could be written, BootOrder is left unchanged\n", "SaveBootOptions");
    return;
  }
  const EFI_STATUS status =
      WriteVariable(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, order.Result());
  if (EFI_ERROR(status) && !order.Result().empty()) {
    DebugPrint("%a:Writing BootOrder failed:%r\n", "SaveBootOptions", status);
  }
}

}  // namespace

void SaveBootOptions() {
  SortList(BootOptionList, CompareByPriority);
  DumpBootOptionList(BootOptionList, "Before Saving");
  if (BootOptionList.First != nullptr) {
    SaveListAndOrder();
  }
  ForgetUnloadedOptions();
}

}  // namespace bds
