// The step that rebuilds the option list from NVRAM.
#include "bootopt/boot_variable_reader.h"
#include "bootopt/load_option.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"

namespace bds {
namespace {

enum class Loading {
  Loaded,   // the variable became an option
  Dropped,  // there is none, or it was malformed and is deleted
  Failed,   // it is there, but this boot cannot have it
};

bool WasListedBefore(UINT16 number) {
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (option->StoredNumber == number) {
      return true;
    }
  }
  return false;
}

Loading LoadBootOption(BootVariableReader& reader, UINT16 number, UINT32& priority) {
  const EFI_STATUS status = reader.Read(number);
  if (EFI_ERROR(status)) {
    return status == EFI_NOT_FOUND ? Loading::Dropped : Loading::Failed;
  }
  LoadOptionView view;
  if (!ViewLoadOption(reader.Image(), view)) {
    static_cast<void>(reader.Delete());
    return Loading::Dropped;
  }
  const bool repeated = WasListedBefore(number);
  BOOT_OPTION* option = ParseLoadOption(BootOptionList, number, view, priority);
  const Loading loading = option != nullptr ? Loading::Loaded : Loading::Failed;
  for (; option != nullptr; option = option->Next) {  // its members too
    option->Repeated = repeated;
  }
  return loading;
}

// Returns the largest number that was loaded; 0 when there is none.
UINT16 LoadOptions(Bytes order) {
  UINT32 priority = kOptionPriorityStep;
  UINT16 largest = 0;
  BootVariableReader reader;
  ByteReader numbers(order);
  for (UINT16 number = 0; numbers.Read(number);) {
    const UINT32 place = priority;
    const Loading loading = LoadBootOption(reader, number, priority);
    if (loading == Loading::Failed) {
      RecordUnloadedOption(number, place);
    } else if (loading == Loading::Loaded && number > largest) {
      largest = number;
    }
  }
  return largest;
}

}  // namespace

EFI_STATUS ReadBootOptions() {
  PoolBuffer order;
  const EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (EFI_ERROR(status)) {
    if (status != EFI_NOT_FOUND) {
      RecordUnreadOrder();
    }
    return status;
  }
  DebugPrint("MaxBootOption:%d\n", LoadOptions(order.Bytes()));
  return EFI_SUCCESS;
}

}  // namespace bds
