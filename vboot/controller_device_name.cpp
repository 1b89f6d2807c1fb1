// The last resort for a device's name: what a driver calls the device or a controller above it.
#include "bootopt/names/controller_name.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

// Drops the last node; false when the path is used up.
bool DropLastNode(DevicePath* path) {
  auto* last = const_cast<DevicePath*>(LastNode(path));
  if (last == nullptr) {
    return false;
  }
  *last = kEndEntireNode;
  return !IsEndEntire(path);
}

// The name of the handle, of its parents, or of the handle nearest to its path as that is cut node by node.
PoolPtr<CHAR16> FindNameAlongPath(EFI_HANDLE handle, DevicePath* path) {
  PoolPtr<CHAR16> name = ControllerNameOnPath(handle);
  while (!name && DropLastNode(path)) {
    DevicePath* nearest = path;
    EFI_HANDLE above = nullptr;
    if (EFI_ERROR(BootServices()->LocateDevicePath(&ProtocolGuid<DevicePath>, &nearest, &above))) {
      break;
    }
    name = ControllerNameOnPath(above);
  }
  return name;
}

// Other names are placeholders of drivers that know nothing of the device.
bool BeginsLikeAName(CHAR16 first) {
  return (first >= 'b' && first <= 'y') || (first >= 'B' && first <= 'Y') || (first >= '1' && first <= '8');
}

}  // namespace

bool GetControllerDeviceName(EFI_HANDLE handle, PoolPtr<char>& name) {
  const DevicePath* base = DevicePathOf(handle);
  if (base == nullptr) {
    return false;
  }
  DebugPrint("Basepath before copy: 0x%x\n", base);
  const PoolPtr<DevicePath> path = CopyDevicePath(base);
  if (!path) {
    return false;
  }
  const PoolPtr<CHAR16> found = FindNameAlongPath(handle, path.get());
  if (!found) {
    return false;
  }
  DebugPrint("DevName on success: 0x%x\n", static_cast<const void*>(found.get()));
  if (!BeginsLikeAName(found[0])) {
    return false;
  }
  DebugPrint("Devname is %S\n", found.get());
  name = NarrowText(found.get(), TrimmedLength(found.get(), TextLength(found.get())));
  return static_cast<bool>(name);
}

}  // namespace bds
