// The step that rebuilds the option list from NVRAM.
#include "bootopt/load_option.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

// Reads Boot#### variables one after the other into one buffer.
class BootVariableReader {
 public:
  // Under the lower-case name when the upper-case one does not exist: some installers write it so.
  [[nodiscard]] EFI_STATUS Read(UINT16 number) {
    name_ = BootVariableName(number);
    EFI_STATUS status = ReadNamed();
    if (status == EFI_NOT_FOUND) {
      name_ = BootVariableNameLowerCase(number);
      status = ReadNamed();
    }
    return status;
  }
  Bytes Image() const { return buffer_.Bytes(); }
  void Delete() const { static_cast<void>(DeleteVariable(name_, gEfiGlobalVariableGuid)); }

 private:
  EFI_STATUS ReadNamed() { return ReadVariableIntoBuffer(name_, gEfiGlobalVariableGuid, nullptr, capacity_, buffer_); }

  NumberedName name_{};
  PoolBuffer buffer_;
  UINTN capacity_ = 0;
};

enum class Loading {
  Loaded,   // the variable became an option
  Dropped,  // there is none, or it was malformed and is deleted
  Failed,   // it is there, but this boot cannot have it
};

Loading LoadBootOption(BootVariableReader& reader, UINT16 number, UINT32& priority) {
  const EFI_STATUS status = reader.Read(number);
  if (EFI_ERROR(status)) {
    return status == EFI_NOT_FOUND ? Loading::Dropped : Loading::Failed;
  }
  LoadOptionView view;
  if (!ViewLoadOption(reader.Image(), view)) {
    reader.Delete();
    return Loading::Dropped;
  }
  const bool parsed = ParseLoadOption(BootOptionList, number, reader.Image(), priority) != nullptr;
  return parsed ? Loading::Loaded : Loading::Failed;
}

}  // namespace

EFI_STATUS ReadBootOptions() {
  PoolBuffer order;
  EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (!EFI_ERROR(status)) {
    status = PrepareUnloadedOptions(order.Size / sizeof(UINT16));
  }
  if (EFI_ERROR(status)) {
    gBootOptions.Unloaded.OrderUnread = status != EFI_NOT_FOUND;
    return status;
  }
  UINT32 priority = kOptionPriorityStep;
  UINT16 largest = 0;
  {
    BootVariableReader reader;
    ByteReader numbers(order.Bytes());
    for (UINT16 number = 0; numbers.Read(number);) {
      const UINT32 place = priority;
      const Loading loading = LoadBootOption(reader, number, priority);
      if (loading == Loading::Failed) {
        AddUnloadedOption(number, place);
      } else if (loading == Loading::Loaded && number > largest) {
        largest = number;
      }
    }
  }
  DebugPrint("MaxBootOption:%d\n", largest);
  return EFI_SUCCESS;
}

}  // namespace bds
