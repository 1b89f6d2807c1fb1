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

// True when the variable became an option.
bool LoadBootOption(BootVariableReader& reader, UINT16 number, UINT32& priority) {
  if (EFI_ERROR(reader.Read(number))) {
    return false;
  }
  LoadOptionView view;
  if (!ViewLoadOption(reader.Image(), view)) {
    reader.Delete();
    return false;
  }
  return ParseLoadOption(BootOptionList, number, reader.Image(), priority) != nullptr;
}

}  // namespace

EFI_STATUS ReadBootOptions() {
  PoolBuffer order;
  const EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (EFI_ERROR(status)) {
    return status;
  }
  UINT32 priority = kOptionPriorityStep;
  UINT16 largest = 0;
  {
    BootVariableReader reader;
    ByteReader numbers(order.Bytes());
    for (UINT16 number = 0; numbers.Read(number);) {
      if (LoadBootOption(reader, number, priority) && number > largest) {
        largest = number;
      }
    }
  }
  DebugPrint("MaxBootOption:%d\n", largest);
  return EFI_SUCCESS;
}

}  // namespace bds
