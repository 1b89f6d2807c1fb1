// The variables of the policy's vendor as lines of text.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"

namespace sim {

// FlexBootOrder, FlexBootReport, HavePBO and OneTimeBoot by their meaning; nothing for any other variable, and for
// contents that are not what the name promises.
std::optional<std::vector<std::string>> DecodePolicyVariable(const Variable& variable);

// The BootType of the policy that a server under the central manager keeps, when it is none of a boot mode.
std::optional<std::string> BootTypeWithoutMode(const VariableStore& store);

}  // namespace sim
