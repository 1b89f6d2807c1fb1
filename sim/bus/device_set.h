// A device tree brought into a machine: root bridge handles and drivers. ConnectController makes all the rest.
#pragma once

#include <memory>
#include <vector>

#include "sim/bus/device_tree.h"
#include "sim/bus/pci_node.h"
#include "sim/firmware/machine.h"

namespace sim {

struct BuildOptions {
  bool connected = false;  // the firmware has connected everything before the boot begins
};

// Root bridges and drivers of one machine, attached to it: machine.Attach<DeviceSet>(tree). It owns its copy of the
// tree, every object behind an interface and every driver. CheckDeviceTree has passed the tree.
class DeviceSet {
 public:
  DeviceSet(Machine& machine, DeviceTree tree, const BuildOptions& options = {});
  DeviceSet(const DeviceSet&) = delete;
  DeviceSet& operator=(const DeviceSet&) = delete;
  ~DeviceSet();

  [[nodiscard]] const DeviceTree& Tree() const;
  [[nodiscard]] const std::vector<EFI_HANDLE>& RootBridgeHandles() const;
  // The described function there; null when there is none.
  [[nodiscard]] const PciFunction* FunctionAt(const PciLocation& place) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Attaches the tree's devices; what the standard form is for whoever builds a server.
DeviceSet& BuildDevices(Machine& machine, DeviceTree tree, const BuildOptions& options = {});

}  // namespace sim
