// The steps whose subject is still to be built. Each leaves the lists and NVRAM as they are; docs/status.md lists them.
#include "core/steps.h"

#include "bmc/steps.h"

namespace bds {

void CheckForNoAssociateOption() {}           // the BMC's view of options without devices
void SetGroupBootOrder() {}                   // the BMC's group order
void DeleteIdenticalBootOptions() {}          // duplicate options
void InactivateLoadingPlaceholderOption() {}  // place-holder options
void BuildBootOrderTable() {}                 // boot order table for the BMC
void RemoveBootxxxx() {}                      // stale Boot#### variables

}  // namespace bds
