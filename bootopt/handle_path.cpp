#include "bootopt/handle_path.h"

#include "platform/block_io.h"
#include "support/protocols.h"

namespace bds {
namespace {

// The nearest handle with the protocol, and the part of the path behind it.
EFI_HANDLE Locate(const EFI_GUID& protocol, const DevicePath* path, const DevicePath*& remaining) {
  auto* rest = const_cast<DevicePath*>(path);
  EFI_HANDLE handle = nullptr;
  if (EFI_ERROR(BootServices()->LocateDevicePath(&protocol, &rest, &handle))) {
    return nullptr;
  }
  remaining = rest;
  return handle;
}

// The node is one of the path's: room for an end node is there, since nodes are no shorter than it.
void EndAt(const DevicePath* node) { StoreUnaligned(const_cast<DevicePath*>(node), kEndEntireNode); }

bool IsPartition(EFI_HANDLE handle) {
  const auto* blockIo = HandleProtocol<EFI_BLOCK_IO_PROTOCOL>(handle);
  return blockIo != nullptr && blockIo->Media != nullptr && blockIo->Media->LogicalPartition != FALSE;
}

}  // namespace

HandlePathClimber::HandlePathClimber(EFI_HANDLE handle) : path_(CopyDevicePath(DevicePathOf(handle))) {}

EFI_HANDLE HandlePathClimber::Up() {
  const DevicePath* last = LastNode(path_.get());
  if (last == nullptr) {
    return nullptr;
  }
  EndAt(last);
  const DevicePath* remaining = nullptr;
  const EFI_HANDLE handle = Locate(ProtocolGuid<DevicePath>, path_.get(), remaining);
  if (handle == nullptr) {
    path_.reset();
    return nullptr;
  }
  EndAt(remaining);
  return handle;
}

EFI_HANDLE HandleAtNode(const DevicePath* path, const DevicePath* node) {
  const PoolPtr<DevicePath> copy = CopyDevicePath(path);
  if (!copy) {
    return nullptr;
  }
  const auto offset = reinterpret_cast<const UINT8*>(NextNode(node)) - reinterpret_cast<const UINT8*>(path);
  EndAt(reinterpret_cast<DevicePath*>(reinterpret_cast<UINT8*>(copy.get()) + offset));
  const DevicePath* remaining = nullptr;
  return Locate(ProtocolGuid<DevicePath>, copy.get(), remaining);
}

EFI_HANDLE WholeDiskHandle(EFI_HANDLE handle) {
  EFI_HANDLE disk = handle;
  HandlePathClimber climber(handle);
  while (disk != nullptr && IsPartition(disk)) {
    disk = climber.Up();
  }
  return disk != nullptr ? disk : handle;
}

bool IsOnFixedMedia(EFI_HANDLE handle) {
  const auto* blockIo = HandleProtocol<EFI_BLOCK_IO_PROTOCOL>(handle);
  return blockIo != nullptr && blockIo->Media != nullptr && blockIo->Media->RemovableMedia == FALSE;
}

EFI_HANDLE LocateOnPath(const EFI_GUID& protocol, EFI_HANDLE handle, const DevicePath*& remaining) {
  const DevicePath* path = DevicePathOf(handle);
  return DevicePathSize(path) != 0 ? Locate(protocol, path, remaining) : nullptr;
}

}  // namespace bds
