// The Setup variable as the BMC steps read and rewrite it.
#include "bmc/setup.h"

namespace bds {

EFI_STATUS ReadSetup(SetupVariable& setup) {
  UINTN size = 0;
  const EFI_STATUS status =
      ReadVariableInto(kSetupName, kSetupGuid, std::as_writable_bytes(std::span(setup.Bytes)), size, &setup.Attributes);
  if (EFI_ERROR(status)) {
    return status;
  }
  return size == kSetupSize ? EFI_SUCCESS : EFI_BAD_BUFFER_SIZE;
}

EFI_STATUS WriteSetup(const SetupVariable& setup) {
  return WriteVariable(kSetupName, kSetupGuid, setup.Attributes, AsBytes(setup.Bytes));
}

}  // namespace bds
