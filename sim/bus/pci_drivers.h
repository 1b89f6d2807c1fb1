// The PCI bus driver, and one driver for every kind of described controller behind PCI I/O.
#pragma once

#include "sim/bus/bus_driver.h"
#include "sim/bus/device_tree.h"

namespace sim {

// Makes a handle with PCI I/O, and with what the platform tells of it, for every function behind a root bridge.
[[nodiscard]] std::unique_ptr<BusDriver> MakePciBusDriver(Machine& machine, const DeviceTree& tree);

// The drivers that the tree's functions need: one per kind of controller, and one more per driver name of its own, so
// that component names tell what the description says.
[[nodiscard]] std::vector<std::unique_ptr<BusDriver>> MakeControllerDrivers(Machine& machine, const DeviceTree& tree);

// The driver that serves storage, network and display controllers through their legacy option ROMs; null when no
// function of the tree has one. Its handle carries the thunk mark, and it is asked after all other drivers unless the
// platform names it first. What it publishes is what the controller's own driver would: the BIOS calls behind it reach
// the same devices.
[[nodiscard]] std::unique_ptr<BusDriver> MakeThunkDriver(Machine& machine, const DeviceTree& tree);

}  // namespace sim
