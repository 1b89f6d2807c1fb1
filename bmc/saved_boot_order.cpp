// Saving the boot order ahead of a boot request and putting it back at the next boot.
#include "bmc/saved_boot_order.h"

#include "bmc/management_mode.h"
#include "bmc/steps.h"
#include "bootopt/boot_lists.h"
#include "bootopt/load_option.h"
#include "support/debug_print.h"
#include "support/number_set.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr CHAR16 kBootOrderName[] = u"BootOrder";
constexpr UINTN kMaxSavedNumbers = 0xFFFF;

// Puts the matched option's Boot#### back. What is no option is dropped: the variable may be whole, and would be
// deleted as malformed when it is read.
void RestoreMatchedBootOption() {
  PoolBuffer saved;
  if (EFI_ERROR(ReadVariable(kSavedBootOptionName, kIpmiVariablesGuid, saved))) {
    return;
  }
  ByteReader reader(saved.Bytes());
  UINT16 number = 0;
  LoadOptionView view;
  const bool usable = reader.Read(number) && ViewLoadOption(reader.Rest(), view);
  if (usable && EFI_ERROR(WriteVariable(BootVariableName(number), gEfiGlobalVariableGuid, kNonVolatileBootRuntime,
                                        reader.Rest()))) {
    return;
  }
  static_cast<void>(DeleteVariable(kSavedBootOptionName, kIpmiVariablesGuid));
}

void RestoreOrder() {
  PoolBuffer saved;
  if (EFI_ERROR(ReadVariable(kSavedBootOrderName, kIpmiVariablesGuid, saved))) {
    return;
  }
  const bool usable = saved.Size != 0 && saved.Size % sizeof(UINT16) == 0;
  if (usable &&
      EFI_ERROR(WriteVariable(kBootOrderName, gEfiGlobalVariableGuid, kNonVolatileBootRuntime, saved.Bytes()))) {
    return;  // kept for the next boot
  }
  static_cast<void>(DeleteVariable(kSavedBootOrderName, kIpmiVariablesGuid));
}

// The numbers of the list in its order, each once; returns how many.
UINTN CollectNumbers(std::span<UINT16> numbers, NumberSet& seen) {
  UINTN count = 0;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr && count < numbers.size();
       option = option->Next) {
    const UINT16 number = option->BootOptionNumber;
    if (number != kNoBootOptionNumber && seen.Insert(number)) {
      numbers[count++] = number;
    }
  }
  return count;
}

}  // namespace

void KeepIpmiVariable(const CHAR16* name, Bytes data) {
  if (const EFI_STATUS status = WriteVariable(name, kIpmiVariablesGuid, kNonVolatileBoot, data); EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing %s:%r\n", "KeepIpmiVariable", name, status);
  }
}

void SaveCurrentBootorder() {
  if (IsRackZephan() != 0) {
    DebugPrint("SaveCurrentBootorder: System in Zephan mode\n");
    return;
  }
  SortList(BootOptionList, CompareByPriority);
  const UINTN room = BootOptionList.Count < kMaxSavedNumbers ? BootOptionList.Count : kMaxSavedNumbers;
  const auto numbers = AllocateArray<UINT16>(room);
  NumberSet seen;
  if (!numbers || !seen) {
    DebugPrint("%a:%r\n", "SaveCurrentBootorder", EFI_OUT_OF_RESOURCES);
    return;
  }
  const UINTN count = CollectNumbers({numbers.get(), room}, seen);
  if (count == 0) {
    return;
  }
  KeepIpmiVariable(kSavedBootOrderName, std::as_bytes(std::span(numbers.get(), count)));
}

void SaveMatchedBootOption(const BOOT_OPTION& option) {
  PoolBuffer image;
  if (option.BootOptionNumber == kNoBootOptionNumber ||
      EFI_ERROR(ReadVariable(BootVariableName(option.BootOptionNumber), gEfiGlobalVariableGuid, image))) {
    return;
  }
  const UINTN size = sizeof(UINT16) + image.Size;
  const PoolPtr<std::byte> record(static_cast<std::byte*>(AllocatePool(size)));
  if (!record) {
    DebugPrint("%a:%r\n", "SaveMatchedBootOption", EFI_OUT_OF_RESOURCES);
    return;
  }
  ByteWriter writer({record.get(), size});
  writer.Write(option.BootOptionNumber);
  writer.WriteBytes(image.Bytes());
  KeepIpmiVariable(kSavedBootOptionName, {record.get(), size});
}

void RestoreBootorder() {
  if (IsRackZephan() != 0) {
    DebugPrint("RestoreBootOrder: System in Zephan mode\n");
    return;
  }
  RestoreMatchedBootOption();
  RestoreOrder();
}

}  // namespace bds
