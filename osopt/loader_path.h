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

// The handle of the partition that the hard-drive node names, known by number and signature. EFI_NOT_FOUND when it is
// not there; any other error when the partitions cannot be listed, or one of them not be asked: that tells nothing.
[[nodiscard]] EFI_STATUS FindPartitionHandle(const DevicePath* hardDriveNode, EFI_HANDLE& partition);

}  // namespace bds
