#include "bmc/matched_option.h"

#include "bmc/ipmi_variables.h"
#include "bootopt/load_option_image.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

// Writes the stored image over the option that it was taken from. What stands there may be somebody else's by now, or
// be deleted, and what was stored may be no option: then there is nothing to put back.
EFI_STATUS PutBack(Bytes record) {
  ByteReader reader(record);
  UINT16 number = 0;
  if (!reader.Read(number)) {
    return EFI_SUCCESS;
  }
  const NumberedName name = BootVariableName(number);
  PoolBuffer present;
  const EFI_STATUS status = ReadVariable(name, gEfiGlobalVariableGuid, present);
  if (EFI_ERROR(status)) {
    return status == EFI_NOT_FOUND ? EFI_SUCCESS : status;
  }
  return IsSameLoadOption(present.Bytes(), reader.Rest())
             ? WriteVariableFirmly(name, gEfiGlobalVariableGuid, kNonVolatileBootRuntime, reader.Rest())
             : EFI_SUCCESS;
}

}  // namespace

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

void RestoreMatchedBootOption() {
  PoolBuffer saved;
  if (!EFI_ERROR(ReadVariable(kSavedBootOptionName, kIpmiVariablesGuid, saved)) && !EFI_ERROR(PutBack(saved.Bytes()))) {
    static_cast<void>(DeleteVariableFirmly(kSavedBootOptionName, kIpmiVariablesGuid));
  }
}

}  // namespace bds
