// Booting BootOrder, option after option, until one takes the machine over.
#include "bootopt/load_option.h"
#include "core/boot.h"
#include "core/steps.h"
#include "support/variables.h"

namespace bds {
namespace {

// Some installers write the number's digits in lower case.
EFI_STATUS ReadBootOption(UINT16 number, PoolBuffer& option) {
  const EFI_STATUS status = ReadVariable(BootVariableName(number), gEfiGlobalVariableGuid, option);
  if (!EFI_ERROR(status)) {
    return status;
  }
  return ReadVariable(BootVariableNameLowerCase(number), gEfiGlobalVariableGuid, option);
}

EFI_STATUS BootOption(UINT16 number) {
  PoolBuffer variable;
  if (const EFI_STATUS status = ReadBootOption(number, variable); EFI_ERROR(status)) {
    return status;
  }
  LoadOptionView option;
  if (!ViewLoadOption(variable.Bytes(), option)) {
    return EFI_INVALID_PARAMETER;
  }
  // An aligned copy of the first path, with its end.
  const auto path = CopyDevicePath(reinterpret_cast<const DevicePath*>(option.FilePathList.data()));
  if (!path) {
    return EFI_OUT_OF_RESOURCES;
  }
  return path->Type == BBS_DEVICE_PATH ? BootLegacyOption(path.get(), number)
                                       : BootEfiOption(path.get(), number, option.OptionalData);
}

}  // namespace

EFI_STATUS ReadBootOptionAndBoot() {
  PoolBuffer order;
  EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (EFI_ERROR(status)) {
    return status;
  }
  ByteReader reader(order.Bytes());
  for (UINT16 number = 0; reader.Read(number);) {
    status = BootOption(number);
  }
  return status;
}

}  // namespace bds
