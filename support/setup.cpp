// The Setup variable as the steps read and rewrite it.
#include "support/setup.h"

namespace bds {

EFI_STATUS ReadSetup(SetupVariable& setup) {
  return ReadVariableInto(kSetupName, kSetupGuid, std::as_writable_bytes(std::span(setup.Bytes)), setup.Size,
                          &setup.Attributes);
}

EFI_STATUS WriteSetup(const SetupVariable& setup) {
  return WriteVariable(kSetupName, kSetupGuid, setup.Attributes, AsBytes(setup.Bytes).first(setup.Size));
}

}  // namespace bds
