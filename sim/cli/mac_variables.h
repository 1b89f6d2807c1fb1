// The database of network addresses and its variables as lines of text.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"

namespace sim {

// MacDB and LOMInterface0 to 3 by their meaning; nothing for any other variable, and for contents that are not what
// the name promises.
std::optional<std::vector<std::string>> DecodeMacVariable(const Variable& variable);

// What a database holds, in a few words; nothing when the bytes are none.
std::optional<std::string> MacDatabaseSummary(std::span<const std::byte> bytes);

}  // namespace sim
