// Saving the boot order ahead of a boot request and putting it back at the next boot.
#include "bmc/saved_boot_order.h"

#include "bmc/ipmi_variables.h"
#include "bmc/management_mode.h"
#include "bmc/matched_option.h"
#include "bmc/steps.h"
#include "bootopt/boot_lists.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr CHAR16 kBootOrderName[] = u"BootOrder";

bool OptionExists(UINT16 number) {
  return VariableExists(BootVariableName(number), gEfiGlobalVariableGuid) ||
         VariableExists(BootVariableNameLowerCase(number), gEfiGlobalVariableGuid);
}

enum class Until : UINT8 { FirstKnown, End };

// Copies the numbers that are not known yet, each once, if there is an option behind them.
void CopyNewNumbers(ByteReader& order, Until until, NumberSet& known, ByteWriter& merged) {
  for (UINT16 number = 0; order.Read(number);) {
    if (known.Insert(number)) {
      if (OptionExists(number)) {
        merged.Write(number);
      }
    } else if (until == Until::FirstKnown) {
      return;
    }
  }
}

// Writes the saved order, and with it what came into BootOrder during the boot that the request changed: an operating
// system is installed by such a boot. What was put in front of everything else stays in front, the rest goes behind.
EFI_STATUS WriteMergedOrder(Bytes saved) {
  PoolBuffer current;
  const EFI_STATUS status = ReadVariable(kBootOrderName, gEfiGlobalVariableGuid, current);
  if (EFI_ERROR(status) && status != EFI_NOT_FOUND) {
    return status;
  }
  const UINTN size = saved.size() + current.Size;
  const PoolPtr<std::byte> merged(static_cast<std::byte*>(AllocatePool(size)));
  NumberSet known;
  if (!merged || !known) {
    return EFI_OUT_OF_RESOURCES;
  }
  ByteReader savedNumbers(saved);
  for (UINT16 number = 0; savedNumbers.Read(number);) {
    static_cast<void>(known.Insert(number));
  }
  ByteReader order(current.Bytes());
  ByteWriter writer({merged.get(), size});
  CopyNewNumbers(order, Until::FirstKnown, known, writer);
  writer.WriteBytes(saved);
  CopyNewNumbers(order, Until::End, known, writer);
  return WriteVariableFirmly(kBootOrderName, gEfiGlobalVariableGuid, kNonVolatileBootRuntime,
                             {merged.get(), writer.Position()});
}

}  // namespace

bool SaveCurrentBootorder() {
  if (IsRackZephan() != 0) {
    DebugPrint("SaveCurrentBootorder: System in Zephan mode\n");
    return true;
  }
  SortList(BootOptionList, CompareByPriority);
  PoolBuffer earlier;
  if (!EFI_ERROR(ReadVariable(kSavedBootOrderName, kIpmiVariablesGuid, earlier))) {
    return true;  // an earlier request's, which this boot could not undo: what is in force now is that request's order
  }
  OrderBuilder order;
  if (const EFI_STATUS status = order.Begin(); EFI_ERROR(status)) {
    DebugPrint("%a:%r\n", "SaveCurrentBootorder", status);
    return false;
  }
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (option->BootOptionNumber != kNoBootOptionNumber) {
      order.Add(option->BootOptionNumber, option->Priority);
    }
  }
  const Bytes numbers = order.Finish();
  return numbers.empty() || KeepIpmiVariable(kSavedBootOrderName, numbers);
}

void RestoreSavedBootOrder() {
  PoolBuffer saved;
  if (EFI_ERROR(ReadVariable(kSavedBootOrderName, kIpmiVariablesGuid, saved))) {
    return;
  }
  const bool usable = saved.Size != 0 && saved.Size % sizeof(UINT16) == 0;
  if (usable && EFI_ERROR(WriteMergedOrder(saved.Bytes()))) {
    return;  // kept for the next boot
  }
  static_cast<void>(DeleteVariableFirmly(kSavedBootOrderName, kIpmiVariablesGuid));
}

void RestoreBootorder() {
  if (IsRackZephan() != 0) {
    DebugPrint("RestoreBootOrder: System in Zephan mode\n");
    return;
  }
  RestoreMatchedBootOption();
  RestoreSavedBootOrder();
}

}  // namespace bds
