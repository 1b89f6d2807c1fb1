// From a handle along its device path towards the root: partitions find their disk, children their controllers.
#pragma once

#include "support/device_path.h"

namespace bds {

// Visits the handles on the way from a handle to the root, each once.
class HandlePathClimber {
 public:
  explicit HandlePathClimber(EFI_HANDLE handle);
  // The next handle towards the root; null when the path is used up. Each call shortens the path by at least a node.
  [[nodiscard]] EFI_HANDLE Up();

 private:
  PoolPtr<DevicePath> path_;
};

// The handle nearest to the path cut behind the node, which is one of its nodes; null when there is none.
[[nodiscard]] EFI_HANDLE HandleAtNode(const DevicePath* path, const DevicePath* node);

// The disk that the handle is a partition of: the first handle upwards whose block I/O does not report a logical
// partition. The handle itself when it is no partition, or when nothing above it is a disk.
[[nodiscard]] EFI_HANDLE WholeDiskHandle(EFI_HANDLE handle);

// The handle's block I/O reports a medium that stays in its drive. False without block I/O.
[[nodiscard]] bool IsOnFixedMedia(EFI_HANDLE handle);

// The nearest handle with the protocol on the handle's device path, and the nodes behind it. Null when there is none.
[[nodiscard]] EFI_HANDLE LocateOnPath(const EFI_GUID& protocol, EFI_HANDLE handle, const DevicePath*& remaining);

}  // namespace bds
