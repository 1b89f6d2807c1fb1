// The Setup variable as the steps read and rewrite it.
#pragma once

#include "platform/setup_variable.h"
#include "support/variables.h"

namespace bds {

struct SetupVariable {
  UINT8 Bytes[kSetupSize] = {};  // zero where the variable is shorter
  UINTN Size = 0;                // as read, at most kSetupSize; that many bytes are written back
  UINT32 Attributes = 0;         // as read; written back unchanged

  UINT8 At(UINTN offset) const { return Bytes[offset]; }
};

// The service's status; EFI_BUFFER_TOO_SMALL when the variable is longer than the record that its readers know. A
// shorter one is read: the bytes it lacks count as 0.
[[nodiscard]] EFI_STATUS ReadSetup(SetupVariable& setup);
[[nodiscard]] EFI_STATUS WriteSetup(const SetupVariable& setup);

}  // namespace bds
