// Device paths of units in a storage network: behind a Fibre Channel adapter, and over iSCSI behind a network port.
#pragma once

#include "sim/bus/device_tree.h"
#include "sim/firmware/device_path_builder.h"

namespace sim {

// The adapter's path and the unit's Fibre Channel node.
[[nodiscard]] DevicePath FibrePath(DevicePath path, const FibreChannelLun& unit);
// The port's path up to its MAC node, then IPv4 and iSCSI.
[[nodiscard]] DevicePath IscsiPath(DevicePath path, const IscsiLun& unit);

}  // namespace sim
