// Where an option's path leads: the instances of its path list, the PCI part of the path, the disk behind a partition.
#pragma once

#include "bootopt/boot_option.h"
#include "support/device_path.h"
#include "support/pool.h"
#include "support/protocols.h"

namespace bds {

// Visits the first node of each path instance in an option's path list, without ever leaving the list's bytes.
class OptionPathInstances {
 public:
  explicit OptionPathInstances(const BOOT_OPTION& option);
  // The first node of the instance at hand, whole within the list; null behind the last instance.
  const DevicePath* Node() const;
  // The bytes from that node to the end of the list.
  Bytes Rest() const { return rest_; }
  void Next();

 private:
  Bytes rest_;
};

[[nodiscard]] inline bool IsAcpiNode(const DevicePath* node) { return IsNode(node, ACPI_DEVICE_PATH, ACPI_DP); }

// Where the PCI part of the option's path begins: at an ACPI node, behind the stand-in node, or, for an option that
// begins with a partition, at disk, the path of the whole disk (which may be null). Null when there is none.
[[nodiscard]] const DevicePath* FindPciPathStart(const BOOT_OPTION& option, const DevicePath* disk);
// A pool copy of the path's first instance that ends with its last PCI node; null when it has none.
[[nodiscard]] PoolPtr<DevicePath> TrimToPciNode(const DevicePath* path);
// The node at which such a copy would end; null when there is none.
[[nodiscard]] const DevicePath* FindLastPciNode(const DevicePath* path);

// The partitions of this boot, looked up once for any number of options.
class Partitions {
 public:
  Partitions();
  // The path of the whole disk that holds the partition which the hard-drive node names: a pool copy; null when no
  // partition of this boot is that one.
  [[nodiscard]] PoolPtr<DevicePath> FindDiskOf(const DevicePath* hardDriveNode) const;

 private:
  PoolPtr<const DevicePath*> paths_;  // of the partitions' handles; not owned
  UINTN count_ = 0;
};

}  // namespace bds
