#include "vboot/option_path.h"

#include "bootopt/vendor_nodes.h"
#include "platform/block_io.h"

namespace bds {
namespace {

// The node at the front of the bytes when all of it lies within them.
const DevicePath* NodeAtFront(Bytes bytes) {
  const auto* node = reinterpret_cast<const DevicePath*>(bytes.data());
  if (bytes.size() < sizeof(DevicePath)) {
    return nullptr;
  }
  const UINT16 length = NodeLength(node);
  return length >= sizeof(DevicePath) && length <= bytes.size() ? node : nullptr;
}

bool IsPciNode(const DevicePath* node) {
  return IsNode(node, HARDWARE_DEVICE_PATH, HW_PCI_DP) && NodeLength(node) >= sizeof(PCI_DEVICE_PATH);
}

// A pool copy of the path without its last node; null for a path of no node, or when the pool is exhausted.
PoolPtr<DevicePath> WithoutLastNode(const DevicePath* path) {
  PoolPtr<DevicePath> copy = CopyDevicePath(path);
  const DevicePath* last = LastNode(copy.get());
  if (last == nullptr) {
    return nullptr;
  }
  StoreUnaligned(const_cast<DevicePath*>(last), kEndEntireNode);
  return copy;
}

bool IsLogicalPartition(EFI_HANDLE handle) {
  const auto* blockIo = HandleProtocol<EFI_BLOCK_IO_PROTOCOL>(handle);
  return blockIo != nullptr && blockIo->Media != nullptr && blockIo->Media->LogicalPartition != FALSE;
}

}  // namespace

OptionPathInstances::OptionPathInstances(const BOOT_OPTION& option)
    : rest_(reinterpret_cast<const std::byte*>(option.FilePathList.get()),
            option.FilePathList ? option.FilePathListLength : 0) {}

const DevicePath* OptionPathInstances::Node() const { return NodeAtFront(rest_); }

void OptionPathInstances::Next() {
  bool ended = false;
  while (!ended) {
    const DevicePath* node = NodeAtFront(rest_);
    if (node == nullptr) {
      rest_ = {};
      return;
    }
    ended = IsEnd(node);
    rest_ = rest_.subspan(NodeLength(node));
  }
}

const DevicePath* FindPciPathStart(const BOOT_OPTION& option, const DevicePath* disk) {
  for (OptionPathInstances instances(option); const DevicePath* node = instances.Node(); instances.Next()) {
    if (IsAcpiNode(node)) {
      return node;
    }
    if (IsVendorNode(node, HARDWARE_DEVICE_PATH, HW_VENDOR_DP, kVeyraStandinGuid)) {
      return NextNode(node);
    }
    if (IsHardDriveNode(node)) {
      return disk;
    }
  }
  return nullptr;
}

PoolPtr<DevicePath> TrimToPciNode(const DevicePath* path) {
  PoolPtr<DevicePath> trimmed = CopyNextInstance(path);
  for (const DevicePath* last = LastNode(trimmed.get()); !IsPciNode(last); last = LastNode(trimmed.get())) {
    if (last == nullptr) {
      return nullptr;
    }
    StoreUnaligned(const_cast<DevicePath*>(last), kEndEntireNode);
  }
  return trimmed;
}

const DevicePath* FindLastPciNode(const DevicePath* path) {
  const DevicePath* last = nullptr;
  for (DevicePathWalker walker(path); walker.Node() != nullptr && !IsEnd(walker.Node()); walker.Next()) {
    last = IsPciNode(walker.Node()) ? walker.Node() : last;
  }
  return last;
}

Partitions::Partitions() {
  const HandleBuffer handles = HandlesWith<EFI_BLOCK_IO_PROTOCOL>();
  paths_ = AllocateArray<const DevicePath*>(handles.size());
  if (!paths_) {
    return;
  }
  for (const EFI_HANDLE handle : handles) {
    const DevicePath* path = IsLogicalPartition(handle) ? DevicePathOf(handle) : nullptr;
    if (IsHardDriveNode(LastNode(path))) {
      paths_[count_++] = path;
    }
  }
}

PoolPtr<DevicePath> Partitions::FindDiskOf(const DevicePath* hardDriveNode) const {
  for (UINTN index = 0; index < count_; ++index) {
    if (IsSamePartition(LastNode(paths_[index]), hardDriveNode)) {
      return WithoutLastNode(paths_[index]);
    }
  }
  return nullptr;
}

}  // namespace bds
