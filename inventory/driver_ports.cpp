#include "inventory/driver_ports.h"

#include "platform/pci_config.h"
#include "platform/pci_io.h"
#include "support/debug_print.h"
#include "support/device_path.h"

namespace bds {
namespace {

// The two protocols differ in what the log calls them.
struct NII_MESSAGES {
  FormatString<UINTN> NoAddress;
  FormatString<UINTN> Address;
  FormatString<UINT16, UINT16> Ids;
  FormatString<UINTN, UINTN, UINTN> Location;
  FormatString<UINT16> Slot;
};
constexpr NII_MESSAGES kCurrent{
    "Failed obtaining MACAddress from Handle : %d\n",
    "Nii MAC address of Interface %d : ",
    "Nii MAC is from Vendor:%04x; Device:%04x\n",
    "Nii MAC is from the device at B=%02x:D=%02x:F=%02x ",
    "Slot:%d ",
};
constexpr NII_MESSAGES kOld{
    "Failed obtaining MACAddress from OldNiiHandle: %d\n",
    "OldNii MAC address of Interface %d : ",
    "OldNii MAC is from Vendor:%04x;Device:%04x\n",
    "OldNii MAC is from the device at B=%02x:D=%02x:F=%02x ",
    "Slot:%d\n",
};

// The network port's PCI function: the handle itself, or the one that its device path leads to.
EFI_STATUS FindPciIo(EFI_HANDLE handle, EFI_PCI_IO_PROTOCOL*& pciIo) {
  if (!EFI_ERROR(OpenOn(handle, pciIo))) {
    return EFI_SUCCESS;
  }
  EFI_DEVICE_PATH_PROTOCOL* path = nullptr;
  EFI_STATUS status = OpenOn(handle, path);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed HandleProtocol for DP = %r\n", status);
    return status;
  }
  EFI_HANDLE function = nullptr;
  status = BootServices()->LocateDevicePath(&ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &path, &function);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed LocateDevicePath for PciIO = %r\n", status);
    return status;
  }
  status = OpenOn(function, pciIo);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed HandleProtocol for PciIO = %r\n", status);
  }
  return status;
}

// The port's bus. False: the device does not tell it.
bool LocatePort(EFI_HANDLE handle, const NII_MESSAGES& messages, UINTN& bus) {
  EFI_PCI_IO_PROTOCOL* pciIo = nullptr;
  if (EFI_ERROR(FindPciIo(handle, pciIo))) {
    return false;
  }
  UINT16 ids[2] = {};
  EFI_STATUS status = pciIo->Pci.Read(pciIo, EfiPciIoWidthUint16, PCI_VENDOR_ID_OFFSET, 2, ids);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed reading VenDevIds = %r\n", status);
    return false;
  }
  DebugPrint(messages.Ids, ids[0], ids[1]);
  UINTN segment = 0;
  UINTN device = 0;
  UINTN function = 0;
  status = pciIo->GetLocation(pciIo, &segment, &bus, &device, &function);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed GetLocation = %r\n", status);
    return false;
  }
  DebugPrint(messages.Location, bus, device, function);
  return true;
}

// The place of the slot that the port counts in, and its address. False: it counts nowhere.
bool FindPortSlot(EFI_HANDLE handle, UINTN index, SlotEntries slots, const NII_MESSAGES& messages, UINTN& place,
                  const UINT8*& mac) {
  if (EFI_ERROR(ObtainMacAddressFromNiiHandle(handle, mac))) {
    DebugPrint(messages.NoAddress, index);
    return false;
  }
  DebugPrint(messages.Address, index);
  for (UINTN i = 0; i < 6; ++i) {
    DebugPrint("%0x:", mac[i]);
  }
  UINTN bus = 0;
  if (!LocatePort(handle, messages, bus) || !FindSlotOfBus(slots, bus, false, place)) {
    return false;
  }
  const UINT16 slot = slots[place].SlotNumber;
  const SLOT_ADAPTER* adapter = FindSlotAdapter(slots[place]);
  if (adapter != nullptr && adapter->Skipping != nullptr) {
    DebugPrint(*adapter->Skipping, slot);
    return false;
  }
  DebugPrint(messages.Slot, slot);
  return true;
}

}  // namespace

EFI_STATUS ObtainMacAddressFromNiiHandle(EFI_HANDLE handle, const UINT8*& mac) {
  EFI_DEVICE_PATH_PROTOCOL* path = nullptr;
  const EFI_STATUS status = OpenOn(handle, path);
  if (EFI_ERROR(status)) {
    DebugPrint("ObtainMacAddressFromNiiHandle:Failed HandleProtocol for DP = %r\n", status);
    return EFI_DEVICE_ERROR;
  }
  for (DevicePathWalker walker(path); walker.Node() != nullptr && !IsEnd(walker.Node()); walker.Next()) {
    const DevicePath* node = walker.Node();
    DebugPrint("%a:DpInstance Type = %0x SubType = %0x ", "ObtainMacAddressFromNiiHandle", node->Type, node->SubType);
    DebugPrint("Length = %d\n", NodeLength(node));
    if (IsNode(node, MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP) && NodeLength(node) >= sizeof(MAC_ADDR_DEVICE_PATH)) {
      mac = reinterpret_cast<const MAC_ADDR_DEVICE_PATH*>(node)->MacAddress;
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}

void RecordDriverPorts(const HandleBuffer& handles, SlotEntries slots, INTERFACE_RECORDS& records) {
  for (UINTN index = 0; index < handles.size(); ++index) {
    UINTN place = 0;
    const UINT8* mac = nullptr;
    if (!FindPortSlot(handles[index], index, slots, kCurrent, place, mac)) {
      continue;
    }
    const UINT16 interfaceId = ++records.SlotInterfaces[place];
    DebugPrint("InterfaceId=%d\n", interfaceId);
    if (records.Add(interfaceId, slots[place].SlotNumber, std::span<const UINT8, 6>(mac, 6)) != nullptr) {
      ++records.FromDrivers;
    }
  }
}

void LogOldDriverPorts(const HandleBuffer& handles, SlotEntries slots) {
  for (UINTN index = 0; index < handles.size(); ++index) {
    UINTN place = 0;
    const UINT8* mac = nullptr;
    static_cast<void>(FindPortSlot(handles[index], index, slots, kOld, place, mac));
  }
}

}  // namespace bds
