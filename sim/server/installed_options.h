// Boot options of a server that an operating system was installed on, written as an installer writes them.
#pragma once

#include <vector>

#include "sim/firmware/variables/variable_store.h"
#include "sim/server/description.h"

namespace sim {

// Boot#### for each option, and BootOrder with all of them in order; nothing at all for no options. False when the
// store takes them not.
[[nodiscard]] bool InstallOptions(VariableStore& store, const std::vector<InstalledOption>& options);

}  // namespace sim
