#include "vboot/option_class.h"

#include "bootopt/bbs_table.h"
#include "flexboot/slot_ports.h"
#include "support/text.h"
#include "vboot/bbs_kind.h"
#include "vboot/port_path.h"

namespace bds {
namespace {

constexpr char kNotApplicable[] = "N/A";
constexpr char kUsb[] = "USB";
constexpr char kVirtualMedia[] = "VMEDIA";
constexpr CHAR16 kKvmDisk[] = u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)/Unit(0x1)";
constexpr CHAR16 kIxmoDvd[] = u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)/Unit(0x3)";

// The word of a device on the USB bus, which the BMC's virtual media and the SD card are too.
const char* UsbWord(const BOOT_OPTION& option) {
  if (!IsUnderAnyPort(kVirtualMediaAndSdPorts, option)) {
    return kUsb;
  }
  return IsUnderAnyPort(kSdPorts, option) ? "SDCARD" : kVirtualMedia;
}

const char* DiskWord(const BOOT_OPTION& option) {
  const BBS_TABLE& entry = *option.BbsEntry;
  if (entry.Class == PCI_CLASS_SERIAL) {
    return IsUsbEntry(entry) ? UsbWord(option) : "SAN";
  }
  if (IsSataEntry(entry)) {
    return "PCHSTORAGE";
  }
  return entry.Class == PCI_CLASS_NETWORK ? "ISCSI" : "HDD";
}

const char* CdromWord(const BOOT_OPTION& option) {
  if (!IsUsbEntry(*option.BbsEntry)) {
    return "CDROM";
  }
  return IsUnderAnyPort(kVirtualMediaAndSdPorts, option) ? kVirtualMedia : kUsb;
}

constexpr UINTN kReportNameLength = 49;

}  // namespace

const char* ClassifyOption(const BOOT_OPTION& option) {
  if (!IsLegacyOption(option)) {
    return "EFI";
  }
  if (option.BbsEntry == nullptr) {
    return "";
  }
  switch (option.BbsEntry->DeviceType) {
    case BBS_TYPE_FLOPPY:
      return UsbWord(option);
    case BBS_TYPE_HARDDRIVE:
      return DiskWord(option);
    case BBS_TYPE_CDROM:
      return CdromWord(option);
    case BBS_TYPE_EMBEDDED_NETWORK:
      return "PXE";
    default:
      return "";
  }
}

bool HasSubType(const char* classWord) { return TextEqual(classWord, kUsb) || TextEqual(classWord, kVirtualMedia); }

bool SitsInASlot(const char* classWord) {
  constexpr const char* kInSlots[] = {"HDD", "PXE", "SAN", "ISCSI"};
  for (const char* word : kInSlots) {
    if (TextEqual(classWord, word)) {
      return true;
    }
  }
  return false;
}

// Disks on SATA ports are known by the name that tells their port.
PoolPtr<char> ReportName(const BOOT_OPTION& option) {
  const BBS_TABLE* entry = option.BbsEntry;
  if (IsLegacyOption(option) && entry != nullptr && IsSataEntry(*entry)) {
    const std::span<const char> text = BbsDescription(*entry);
    return CopyText(text.data(), text.size() < kReportNameLength ? text.size() : kReportNameLength);
  }
  const UINTN length = TextLength(option.Description.get());
  PoolPtr<char> name = AllocateArray<char>(length + sizeof("+"));
  if (name) {
    FormatAscii({name.get(), length + sizeof("+")}, "%S+", option.Description ? option.Description.get() : u"");
  }
  return name;
}

const char* GetOptionSubType(const BOOT_OPTION& option, const char* classWord) {
  if (!HasSubType(classWord) || option.BbsEntry == nullptr) {
    return kNotApplicable;
  }
  const bool usb = TextEqual(classWord, kUsb);
  switch (option.BbsEntry->DeviceType) {
    case BBS_TYPE_FLOPPY:
      return usb ? "usb-fdd" : "kvm-mapped-fdd";
    case BBS_TYPE_HARDDRIVE:
      if (usb) {
        return "usb-hdd";
      }
      return DevicePathTextMatches(kKvmDisk, option) ? "kvm-mapped-hdd" : "ixmo-mapped-hdd";
    case BBS_TYPE_CDROM:
      if (usb) {
        return "usb-cd";
      }
      return DevicePathTextMatches(kIxmoDvd, option) ? "ixmo-mapped-dvd" : "kvm-mapped-dvd";
    default:
      return "";
  }
}

void LookupSlotPort(UINT32 bus, UINT32 device, UINT32 function, UINT16& slot, UINT16& port) {
  slot = port = 0;
  for (const SLOT_PORT_ENTRY& entry : SlotPortTable()) {
    if (entry.Location == PCI_LOCATION{bus, device, function}) {
      slot = entry.Slot;
      port = entry.Port;
      return;
    }
  }
}

void AddOptionToReport(POLICY_TARGET& target, const BOOT_OPTION& option) {
  const PoolPtr<char> name = ReportName(option);
  POLICY_REPORT_ENTRY* entry = AddReportEntry(target, ReportCategory::OptionName, name ? name.get() : "");
  if (entry == nullptr) {
    return;
  }
  const char* classWord = ClassifyOption(option);
  UINT16 slot = 0;
  UINT16 port = 0;
  if (SitsInASlot(classWord)) {
    LookupSlotPort(option.BbsEntry->Bus, option.BbsEntry->Device, option.BbsEntry->Function, slot, port);
  }
  AddReportDeviceInfo(*entry, classWord, slot, port, GetOptionSubType(option, classWord));
}

}  // namespace bds
