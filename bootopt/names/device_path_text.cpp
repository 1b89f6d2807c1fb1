// Device paths as text: the driver's own nodes first, the rest through the firmware's converter or a built-in one.
#include "bootopt/names/device_path_text.h"

#include "bootopt/boot_option.h"
#include "bootopt/names/growing_text.h"
#include "bootopt/vendor_nodes.h"
#include "platform/device_path_text.h"
#include "support/device_path.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

using NodePrinter = void (*)(GrowingText& text, const DevicePath* node);

template <typename Node>
Node As(const DevicePath* node) {
  return LoadUnaligned<Node>(node);
}
const EFI_GUID* GuidOf(const DevicePath* node) { return reinterpret_cast<const EFI_GUID*>(node + 1); }
UINT8 FirstByte(const DevicePath* node) { return *reinterpret_cast<const UINT8*>(node + 1); }

// The UTF-16 text from an offset in the node up to its NUL or the node's end.
void PutNodeText(GrowingText& text, const DevicePath* node, UINTN offset) {
  const auto* bytes = reinterpret_cast<const UINT8*>(node);
  for (; offset + sizeof(CHAR16) <= NodeLength(node); offset += sizeof(CHAR16)) {
    const auto character = LoadUnaligned<CHAR16>(bytes + offset);
    if (character == 0) {
      return;
    }
    text.Put(character);
  }
}

void PrintPci(GrowingText& text, const DevicePath* node) {
  const auto pci = As<PCI_DEVICE_PATH>(node);
  text.Print("PCI(%X|%X)\\", pci.Device, pci.Function);
}
void PrintPccard(GrowingText& text, const DevicePath* node) { text.Print("Pccard(Socket %i)\\", FirstByte(node)); }
void PrintHardwareVendor(GrowingText& text, const DevicePath* node) { text.Print("VenHw(%g)\\", GuidOf(node)); }
void PrintAcpi(GrowingText& text, const DevicePath* node) {
  const auto acpi = As<ACPI_HID_DEVICE_PATH>(node);
  text.Print("Acpi(%x, %x)\\", UINT32{acpi.HID}, UINT32{acpi.UID});
}
void PrintAtapi(GrowingText& text, const DevicePath* node) {
  text.Print("ATA(%s, %i)\\", FirstByte(node) == 0 ? "Master" : "Slave", UINT16{As<ATAPI_DEVICE_PATH>(node).Lun});
}
void PrintScsi(GrowingText& text, const DevicePath* node) {
  const auto scsi = As<SCSI_DEVICE_PATH>(node);
  text.Print("SCSI(%i, %i)\\", UINT16{scsi.Pun}, UINT16{scsi.Lun});
}
void PrintUsb(GrowingText& text, const DevicePath* node) {
  const auto usb = As<USB_DEVICE_PATH>(node);
  text.Print("USB(%x,%x)\\", usb.ParentPortNumber, usb.InterfaceNumber);
}
void PrintMessagingVendor(GrowingText& text, const DevicePath* node) { text.Print("VenMsg(%g)\\", GuidOf(node)); }
void PrintHardDrive(GrowingText& text, const DevicePath* node) {
  text.Print("HD(Part%i, Sig %s)\\", UINT32{As<HARDDRIVE_DEVICE_PATH>(node).PartitionNumber}, "?");
}
void PrintCdrom(GrowingText& text, const DevicePath* node) {
  text.Print("CDROM(Entry%i)\\", UINT32{As<CDROM_DEVICE_PATH>(node).BootEntry});
}
void PrintMediaVendor(GrowingText& text, const DevicePath* node) { text.Print("VenMedia(%g)\\", GuidOf(node)); }
void PrintFilePath(GrowingText& text, const DevicePath* node) {
  text.Print("File(");
  PutNodeText(text, node, sizeof(DevicePath));
  text.Print(")\\");
}

struct NodeTextRow {
  UINT8 Type;
  UINT8 SubType;
  UINT16 MinimumLength;  // a shorter node has not the fields that its text shows
  NodePrinter Print;
};
constexpr NodeTextRow kNodeTexts[] = {
    {HARDWARE_DEVICE_PATH, HW_PCI_DP, sizeof(PCI_DEVICE_PATH), PrintPci},
    {HARDWARE_DEVICE_PATH, HW_PCCARD_DP, sizeof(DevicePath) + 1, PrintPccard},
    {HARDWARE_DEVICE_PATH, HW_VENDOR_DP, sizeof(VENDOR_DEVICE_PATH), PrintHardwareVendor},
    {ACPI_DEVICE_PATH, ACPI_DP, sizeof(ACPI_HID_DEVICE_PATH), PrintAcpi},
    {MESSAGING_DEVICE_PATH, MSG_ATAPI_DP, sizeof(ATAPI_DEVICE_PATH), PrintAtapi},
    {MESSAGING_DEVICE_PATH, MSG_SCSI_DP, sizeof(SCSI_DEVICE_PATH), PrintScsi},
    {MESSAGING_DEVICE_PATH, MSG_USB_DP, sizeof(USB_DEVICE_PATH), PrintUsb},
    {MESSAGING_DEVICE_PATH, MSG_VENDOR_DP, sizeof(VENDOR_DEVICE_PATH), PrintMessagingVendor},
    {MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, sizeof(HARDDRIVE_DEVICE_PATH), PrintHardDrive},
    {MEDIA_DEVICE_PATH, MEDIA_CDROM_DP, sizeof(CDROM_DEVICE_PATH), PrintCdrom},
    {MEDIA_DEVICE_PATH, MEDIA_VENDOR_DP, sizeof(VENDOR_DEVICE_PATH), PrintMediaVendor},
    {MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP, sizeof(DevicePath), PrintFilePath},
};

void PrintNode(GrowingText& text, const DevicePath* node) {
  for (const NodeTextRow& row : kNodeTexts) {
    if (IsNode(node, row.Type, row.SubType) && NodeLength(node) >= row.MinimumLength) {
      row.Print(text, node);
      return;
    }
  }
  text.Print("DevicePath(Type %i, SubType %i)", node->Type, node->SubType);
}

// Writes the driver's own node at the front of a path, if there is one, and returns what follows it.
const DevicePath* PrintOwnNode(GrowingText& text, const DevicePath* path) {
  if (IsVendorNode(path, HARDWARE_DEVICE_PATH, HW_VENDOR_DP, kDeviceNameGuid)) {
    text.Print("NUV name path(");
    if (NodeLength(path) <= sizeof(VENDOR_DEVICE_PATH)) {
      text.Print("Empty");
    } else {
      PutNodeText(text, path, sizeof(VENDOR_DEVICE_PATH));
    }
    text.Print(")\\");
    return NextNode(path);
  }
  if (IsVendorNode(path, HARDWARE_DEVICE_PATH, HW_VENDOR_DP, kVeyraStandinGuid)) {
    text.Print("Veyra standin node ()\\");
    return NextNode(path);
  }
  return path;
}

EFI_STATUS PrintRest(GrowingText& text, const DevicePath* path) {
  if (const auto* converter = LocateProtocol<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL>(); converter != nullptr) {
    const PoolPtr<CHAR16> converted(converter->ConvertDevicePathToText(path, FALSE, TRUE));
    if (!converted) {
      return EFI_OUT_OF_RESOURCES;
    }
    text.Print("%S", converted.get());
    return EFI_SUCCESS;
  }
  for (DevicePathWalker walker(path); walker.Node() != nullptr; walker.Next()) {
    PrintNode(text, walker.Node());
  }
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS DevicePathToText(const EFI_DEVICE_PATH_PROTOCOL* path, PoolPtr<char>& text, UINT32) {
  text.reset();
  if (DevicePathSize(path) == 0) {
    return EFI_INVALID_PARAMETER;
  }
  GrowingText written;
  if (IsBuiltInApplicationNode(path)) {
    written.Print("EFI shell");
  } else {
    const EFI_STATUS status = PrintRest(written, PrintOwnNode(written, path));
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  text = written.Take();
  return text ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

}  // namespace bds
