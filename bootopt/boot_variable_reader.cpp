#include "bootopt/boot_variable_reader.h"

namespace bds {

EFI_STATUS BootVariableReader::Read(UINT16 number) {
  name_ = BootVariableName(number);
  const EFI_STATUS status = ReadNamed();
  if (status != EFI_NOT_FOUND) {
    return status;
  }
  name_ = BootVariableNameLowerCase(number);
  return ReadNamed();
}

EFI_STATUS BootVariableReader::ReadNamed() {
  return ReadVariableIntoBuffer(name_, gEfiGlobalVariableGuid, nullptr, capacity_, buffer_);
}

}  // namespace bds
