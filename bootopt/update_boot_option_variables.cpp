// Prepares the option work: the driver's strings and two empty lists.
#include "bootopt/names/strings.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"

namespace bds {

void UpdateBootOptionVariables() {
  RegisterStrings();
  BootOptionList = {};
  BootDeviceList = {};
  DebugPrint("UpdateBootOptionVariables:Boot lists initialized\n");
}

}  // namespace bds
