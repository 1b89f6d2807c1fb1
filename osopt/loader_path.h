// Paths of operating systems' loaders: a partition's hard-drive node, the file, the end.
#pragma once

#include "support/byte_reader.h"
#include "support/device_path.h"

namespace bds {

// The hard-drive node with which the path begins; null when it begins with another node or the bytes end within it.
[[nodiscard]] const DevicePath* LeadingHardDrive(Bytes path);

// EFI_SUCCESS when both paths begin with the hard-drive node of one partition, start and size included, and what
// follows in otherPath, to its end, begins the rest of optionPath: the file directly behind the node without regard to
// the letter case of a to z, the remainder byte by byte. EFI_NOT_FOUND otherwise. Neither path is changed.
[[nodiscard]] EFI_STATUS CompareOsLoaderPath(Bytes optionPath, Bytes otherPath);

// The partitions that are present, each handle asked once, when the first one is looked for. The nodes are the
// firmware's: an object lives no longer than nothing is connected or disconnected.
class PartitionHandles {
 public:
  // The handle of the partition that the hard-drive node names, known by number and signature. EFI_NOT_FOUND when it is
  // not there; any other error when the partitions cannot be listed, or one of them not be asked: that tells nothing.
  [[nodiscard]] EFI_STATUS Find(const DevicePath* hardDriveNode, EFI_HANDLE& partition);

 private:
  struct Place {
    EFI_HANDLE Handle;
    const DevicePath* Node;  // the last one of the handle's path
  };
  [[nodiscard]] EFI_STATUS List();

  PoolPtr<Place> places_;
  UINTN count_ = 0;
  bool listed_ = false;
  EFI_STATUS absent_ = EFI_NOT_FOUND;  // what the listing says of a partition that is not among them
};

}  // namespace bds
