// The steps whose subject is still to be built. Each leaves the lists and NVRAM as they are; docs/status.md lists them.
#include "core/steps.h"

#include "bmc/management_mode.h"
#include "bmc/steps.h"
#include "flexboot/actual_order.h"
#include "vboot/policy_engine.h"

namespace bds {

void CheckForNoAssociateOption() {}           // the BMC's view of options without devices
void SetGroupBootOrder() {}                   // the BMC's group order
void DeleteIdenticalBootOptions() {}          // duplicate options
void InactivateLoadingPlaceholderOption() {}  // place-holder options
void RemoveBootxxxx() {}                      // stale Boot#### variables

// Boot order table for the BMC: so far a standalone server reports the order that no policy made.
void BuildBootOrderTable() {
  if ((!HaveVbootPolicy() || IsStbuEfiEnabled()) && IsRackZephan() == 0) {
    ReportOrderWithoutPolicy();
  }
}

}  // namespace bds
