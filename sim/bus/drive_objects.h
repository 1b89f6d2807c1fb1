// The objects that every drive publishes, whatever bus it hangs on.
#pragma once

#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"

namespace sim {

// Block I/O, and for a folder of the host its file system.
[[nodiscard]] std::vector<std::shared_ptr<DeviceObject>> MakeDriveObjects(const Drive& drive);

}  // namespace sim
