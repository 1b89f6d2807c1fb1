// The result of bds-sim boot as JSON, for scripts: docs/bds-sim.md describes every member.
#pragma once

#include <string>
#include <vector>

#include "sim/cli/boot_result.h"

namespace sim {

// notes: what Server::Notes() says. Texts that are no UTF-8 have the bad bytes replaced; the output ends with a line
// feed.
std::string JsonReport(const std::string& serverName, const std::vector<std::string>& notes,
                       const std::vector<BootResult>& boots);

}  // namespace sim
