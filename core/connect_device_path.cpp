// Each round of connecting must move the nearest handle along the path; that bounds the rounds by the path's nodes.
#include "core/connect_device_path.h"

#include "support/services.h"
#include "support/variables.h"

namespace bds {
namespace {

// The handle nearest to the path's end, and what of the path is left behind it.
EFI_STATUS LocateNearest(const DevicePath* path, EFI_HANDLE& handle, DevicePath*& remaining) {
  remaining = const_cast<DevicePath*>(path);
  return BootServices()->LocateDevicePath(&ProtocolGuid<DevicePath>, &remaining, &handle);
}

void ConnectInstance(const DevicePath* instance) {
  const DevicePath* before = nullptr;
  while (true) {
    EFI_HANDLE handle = nullptr;
    DevicePath* remaining = nullptr;
    if (EFI_ERROR(LocateNearest(instance, handle, remaining))) {
      return;
    }
    if (IsEnd(remaining)) {
      static_cast<void>(BootServices()->ConnectController(handle, nullptr, nullptr, TRUE));
      return;
    }
    if (before != nullptr && remaining <= before) {
      return;
    }
    before = remaining;
    if (EFI_ERROR(BootServices()->ConnectController(handle, nullptr, remaining, FALSE))) {
      return;
    }
  }
}

}  // namespace

EFI_HANDLE HandleOfWholePath(const DevicePath* path) {
  EFI_HANDLE handle = nullptr;
  DevicePath* remaining = nullptr;
  return !EFI_ERROR(LocateNearest(path, handle, remaining)) && IsEnd(remaining) ? handle : nullptr;
}

void ConnectDevicePath(const DevicePath* path) {
  while (path != nullptr) {
    const auto instance = CopyNextInstance(path);
    if (!instance) {
      return;
    }
    ConnectInstance(instance.get());
  }
}

void ConnectDevicePathVariable(const CHAR16* name) {
  PoolBuffer variable;
  if (EFI_ERROR(ReadVariable(name, gEfiGlobalVariableGuid, variable)) || EFI_ERROR(CheckDevicePath(variable.Bytes()))) {
    return;
  }
  ConnectDevicePath(reinterpret_cast<const DevicePath*>(variable.Data.get()));
}

}  // namespace bds
