// A device tree brought into a machine: root bridge handles and drivers. ConnectController makes all the rest.
#pragma once

#include <memory>
#include <vector>

#include "platform/boot_services.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_tree.h"

namespace sim {

struct BuildOptions {
  bool connected = false;  // the firmware has connected everything before the boot begins
};

// Root bridges and drivers of one machine. It owns its copy of the tree, every object behind an interface and every
// driver, so it has to live until the machine's last service call, and not longer than its boot services table.
class DeviceSet {
 public:
  DeviceSet(EFI_BOOT_SERVICES& boot, const BusContext& context, DeviceTree tree, const BuildOptions& options = {});
  DeviceSet(const DeviceSet&) = delete;
  DeviceSet& operator=(const DeviceSet&) = delete;
  ~DeviceSet();

  [[nodiscard]] const DeviceTree& Tree() const;
  [[nodiscard]] const std::vector<EFI_HANDLE>& RootBridgeHandles() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace sim
