#include "core/boot.h"
#include "support/event.h"
#include "support/variables.h"

namespace bds {

void SignalReadyToBoot(UINT16 number) {
  if (number != kNoOptionNumber) {
    static_cast<void>(WriteVariable(u"BootCurrent", gEfiGlobalVariableGuid, kVolatileBootRuntime, AsBytes(number)));
  }
  SignalEventGroup(gEfiEventReadyToBootGuid);
}

}  // namespace bds
