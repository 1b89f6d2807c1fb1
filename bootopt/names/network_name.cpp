// The name that drivers give the controller behind an option. For an IP boot entry of a network interface, which has a
// handle below that of the interface, the IP version and the PCI location tell apart the entries of one card.
#include "bootopt/names/network_name.h"

#include "bootopt/handle_path.h"
#include "bootopt/names/controller_name.h"
#include "bootopt/names/name_writer.h"
#include "bootopt/names/pci_info.h"
#include "platform/load_file.h"
#include "support/format.h"
#include "support/protocols.h"

namespace bds {
namespace {

// The last messaging node behind the MAC address node; the node itself when none follows.
const DevicePath* LastMessagingNode(const DevicePath* mac) {
  const DevicePath* last = mac;
  for (DevicePathWalker walker(NextNode(mac)); walker.Node() != nullptr; walker.Next()) {
    if (walker.Node()->Type == MESSAGING_DEVICE_PATH) {
      last = walker.Node();
    }
  }
  return last;
}

struct LocationTag {
  CHAR16 Text[16] = {};
};
LocationTag PciLocationTag(const DevicePath* path) {
  LocationTag tag;
  PCI_DEVICE_INFO pci;
  if (!EFI_ERROR(GetPciDeviceInfo(path, pci))) {
    FormatUtf16(tag.Text, "%02x%x%x ", pci.Bus, pci.Device, pci.Function);
  }
  return tag;
}

// Begins the name of a load-file handle below a network interface and returns the interface's handle.
EFI_HANDLE BeginInterfaceName(EFI_HANDLE handle, NameWriter& name) {
  const DevicePath* path = DevicePathOf(handle);
  const DevicePath* mac = FindNode(path, MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP);
  if (DevicePathSize(path) == 0 || mac == nullptr || mac == LastNode(path)) {
    return handle;
  }
  const LocationTag tag = PciLocationTag(path);
  const DevicePath* last = LastMessagingNode(mac);
  if (IsNode(last, MESSAGING_DEVICE_PATH, MSG_IPV4_DP)) {
    name.Advance(FormatUtf16(name.Rest(), "IP4 %s", tag.Text));
  } else if (IsNode(last, MESSAGING_DEVICE_PATH, MSG_IPV6_DP)) {
    name.Advance(FormatUtf16(name.Rest(), "IP6 %s", tag.Text));
  }
  const EFI_HANDLE interface = HandleAtNode(path, mac);
  return interface != nullptr ? interface : handle;
}

}  // namespace

UINTN BuildNetworkName(const BOOT_OPTION& option, std::span<CHAR16> buffer) {
  NameWriter name(buffer);
  EFI_HANDLE handle = option.DeviceHandle != nullptr ? WholeDiskHandle(option.DeviceHandle) : nullptr;
  if (handle == nullptr) {
    return 0;
  }
  if (HasProtocol(handle, ProtocolGuid<EFI_LOAD_FILE_PROTOCOL>)) {
    handle = BeginInterfaceName(handle, name);
  }
  const PoolPtr<CHAR16> controller = ControllerNameOnPath(handle);
  if (!controller) {
    name.Clear();
    return 0;
  }
  name.Append(controller.get());
  name.TrimBlanks();
  return name.Length();
}

}  // namespace bds
