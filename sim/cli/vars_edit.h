// The changes that "bds-sim vars" makes: the order, options added, deleted and switched, BootNext, bytes of Setup.
#pragma once

#include <string>

#include "sim/cli/commands.h"
#include "sim/cli/state_variables.h"

namespace sim {

// Carries the action out and says what the variable is now. Throws StateError when it cannot be done; what was said to
// be wrong has then changed nothing.
std::string EditVariables(StateVariables& variables, const VarsArguments& arguments);

}  // namespace sim
