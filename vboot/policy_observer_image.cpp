// The image has nobody to tell.
#include "vboot/policy_observer.h"

namespace bds {

void ObservePolicy(const POLICY_EVENT&) {}

}  // namespace bds
