// The Setup variable as the BMC steps read and rewrite it.
#pragma once

#include "platform/setup_variable.h"
#include "support/variables.h"

namespace bds {

struct SetupVariable {
  UINT8 Bytes[kSetupSize] = {};
  UINT32 Attributes = 0;  // as read; written back unchanged

  UINT8 At(UINTN offset) const { return Bytes[offset]; }
};

// The service's status; EFI_BAD_BUFFER_SIZE when the variable is shorter than the record that all its readers know.
[[nodiscard]] EFI_STATUS ReadSetup(SetupVariable& setup);
[[nodiscard]] EFI_STATUS WriteSetup(const SetupVariable& setup);

}  // namespace bds
