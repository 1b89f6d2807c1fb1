// The PCI bus driver, and one driver for every kind of described controller behind PCI I/O.
#pragma once

#include "sim/bus/bus_driver.h"
#include "sim/bus/device_tree.h"

namespace sim {

// Makes a handle with PCI I/O for every function behind a root bridge.
[[nodiscard]] std::unique_ptr<BusDriver> MakePciBusDriver(Machine& machine);

// The drivers that the tree's functions need: one per kind of controller, and one more per driver name of its own, so
// that component names tell what the description says.
[[nodiscard]] std::vector<std::unique_ptr<BusDriver>> MakeControllerDrivers(Machine& machine, const DeviceTree& tree);

}  // namespace sim
