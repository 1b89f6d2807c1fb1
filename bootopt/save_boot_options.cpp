// Writes every numbered option back as Boot####, and BootOrder behind them. Consumes the options it saves.
#include "bootopt/dumps.h"
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
// earlier boot. Such an option must not drop out of the order.
bool StoreHolds(const CHAR16* name, Bytes image) {
  PoolBuffer stored;
  return !EFI_ERROR(ReadVariable(name, gEfiGlobalVariableGuid, stored)) && IsSameLoadOption(stored.Bytes(), image);
}

// True when the variable now stands for the option.
bool SaveOption(const BOOT_OPTION& option) {
  const PoolBuffer image = BuildLoadOptionImage(option);
  if (!image.Data) {
    DebugPrint("%a:No memory for Boot%04X\n", "SaveBootOptions", option.BootOptionNumber);
    return false;
  }
  const NumberedName name = BootVariableName(option.BootOptionNumber);
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

struct SaveCounts {
  UINTN Tried = 0;
  UINTN Saved = 0;
};

SaveCounts SaveAll(UINT16* order) {
  SaveCounts counts;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    if (!IsSaved(*option)) {
      option = option->Next;
      continue;
    }
    ++counts.Tried;
    if (SaveOption(*option)) {
      order[counts.Saved++] = option->BootOptionNumber;
    }
    option = DeleteWithMembers(option);
  }
  return counts;
}

}  // namespace

void SaveBootOptions() {
  SortList(BootOptionList, CompareByPriority);
  DumpBootOptionList(BootOptionList, "Before Saving");
  if (BootOptionList.First == nullptr) {
    return;
  }
  const auto order = AllocateArray<UINT16>(BootOptionList.Count);
  if (!order) {
    DebugPrint("%a:No memory for the boot order\n", "SaveBootOptions");
    return;
  }
  const SaveCounts counts = SaveAll(order.get());
  if (counts.Tried != 0 && counts.Saved == 0) {
    // The store takes nothing: an empty order would throw away the one that it still holds.
    DebugPrint("%a:No option could be written, BootOrder is left unchanged\n", "SaveBootOptions");
    return;
  }
  const Bytes saved{reinterpret_cast<const std::byte*>(order.get()), counts.Saved * sizeof(UINT16)};
  const EFI_STATUS status = WriteVariable(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, saved);
  if (EFI_ERROR(status) && !saved.empty()) {
    DebugPrint("%a:Writing BootOrder failed:%r\n", "SaveBootOptions", status);
  }
}

}  // namespace bds
