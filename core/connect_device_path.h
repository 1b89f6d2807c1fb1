// Connecting along a device path, node by node, until the device at its end is there.
#pragma once

#include "support/device_path.h"

namespace bds {

// Connects each instance of the path. A device that is there already is connected recursively; otherwise the nearest
// controller is connected towards the rest of the path as often as that brings the device nearer. A broken or null
// path connects what lies before the fault.
void ConnectDevicePath(const DevicePath* path);

// The handle that carries the whole path; null when only a part of it is there. The path must be well formed.
[[nodiscard]] EFI_HANDLE HandleOfWholePath(const DevicePath* path);

// Connects the paths in the EFI global variable; skipped when it cannot be read or is no device path.
void ConnectDevicePathVariable(const CHAR16* name);

}  // namespace bds
