// The handles of a machine that have a device path, as a tree: a device stands below the one whose path its own begins
// with.
#pragma once

#include <string>
#include <vector>

#include "sim/cli/style.h"
#include "sim/firmware/device_path_builder.h"
#include "sim/firmware/handle_database.h"

namespace sim {

struct DeviceLine {
  DevicePath path;
  std::vector<std::string> protocols;  // short names, without the device path itself
};

// All handles with a device path, in the order of their creation.
std::vector<DeviceLine> ListDevices(const HandleDatabase& handles);

// One line per device. Siblings stay in the order given; only the nodes that the parent has not are shown.
std::string DeviceTreeText(const std::vector<DeviceLine>& devices, const Style& style);

}  // namespace sim
