// Device paths as text, for dumps.
#pragma once

#include "platform/device_path.h"
#include "support/pool.h"

namespace bds {

// The path as ASCII text in pool memory. flags is reserved and 0.
[[nodiscard]] EFI_STATUS DevicePathToText(const EFI_DEVICE_PATH_PROTOCOL* path, PoolPtr<char>& text, UINT32 flags = 0);

}  // namespace bds
