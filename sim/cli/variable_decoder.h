// What a variable says, as lines of text: boot options, orders, device paths and the legacy device order by their
// meaning, everything else in hexadecimal. Any bytes give some text.
#pragma once

#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"

namespace sim {

// The contents only, without name and attributes; at least one line.
std::vector<std::string> DecodeVariable(const Variable& variable);

// "NV BS RT" and the like; unknown bits in hexadecimal.
std::string VariableAttributesText(std::uint32_t attributes);

}  // namespace sim
