// The devices that could be booted and have no boot option at the end of a boot, each with the reason as far as it can
// be seen from outside.
#pragma once

#include <string>
#include <vector>

#include "sim/firmware/machine.h"
#include "sim/firmware/variables/variable_store.h"

namespace sim {

struct DeviceWithoutOption {
  std::string path;
  std::string reason;
};

// Drives, and what has a load file protocol. A device counts as covered when an option's path begins with its own or
// with the node of one of its partitions, or when it stands in the BBS table and there is a legacy option of its type.
std::vector<DeviceWithoutOption> DevicesWithoutOption(Machine& machine, const VariableStore& store);

}  // namespace sim
