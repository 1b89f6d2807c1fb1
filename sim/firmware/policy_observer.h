// Who listens to the driver's policy engine in host programs.
#pragma once

#include <functional>

#include "vboot/policy_observer.h"

namespace sim {

// Called for everything that the engine tells, until the next call of this function; null: nobody listens. What the
// event points to is valid during the call only. One listener a process, since the linked driver's state is one too.
void ListenToPolicy(std::function<void(const bds::POLICY_EVENT&)> listener);

}  // namespace sim
