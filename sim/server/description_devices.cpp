// The device part of a description: root bridges, PCI functions by kind, and what hangs on each controller.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <set>

#include "sim/bus/option_rom.h"
#include "sim/bus/utf_text.h"
#include "sim/server/description.h"
#include "sim/storage/disk_image.h"

namespace sim {
namespace {

struct Kind {
  const char* name;
  std::uint32_t classCode;
};
constexpr std::array kKinds{
    Kind{"isa", 0x060100}, Kind{"ahci", 0x010601},   Kind{"ide", 0x01018A},  Kind{"nvme", 0x010802},
    Kind{"sas", 0x010700}, Kind{"ehci", 0x0C0320},   Kind{"xhci", 0x0C0330}, Kind{"network", 0x020000},
    Kind{"vga", 0x030000}, Kind{"bridge", 0x060400}, Kind{"raid", 0x010400}, Kind{"other", 0xFF0000},
};
enum KindIndex { kIsa, kAhci, kIde, kNvme, kSas, kEhci, kXhci, kNetwork, kVga, kBridge, kRaid, kOther };

std::vector<std::string> KindNames() {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) {
    names.emplace_back(kind.name);
  }
  return names;
}

using MacAddress = decltype(NetworkPort::mac);

std::optional<MacAddress> ParseMac(std::string_view text) {
  MacAddress mac{};
  if (text.size() != mac.size() * 3 - 1) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < mac.size(); ++i) {
    const char* digits = text.data() + i * 3;
    const auto read = std::from_chars(digits, digits + 2, mac[i], 16);
    if (read.ec != std::errc{} || read.ptr != digits + 2 || (i + 1 < mac.size() && digits[2] != ':')) {
      return std::nullopt;
    }
  }
  return mac;
}

// The tables that hang on one kind of function only.
struct KindTable {
  const char* key;
  std::initializer_list<KindIndex> kinds;
};
const KindTable kKindTables[] = {
    {"sata", {kAhci}},  {"ide", {kIde}},         {"namespace", {kNvme}},  {"scsi", {kSas, kRaid}},
    {"floppy", {kIsa}}, {"usb", {kEhci, kXhci}}, {"function", {kBridge}},
};

// TOML hangs a table on the function that was begun last, which is easily another one than its writer meant.
void FailForOtherKindsTables(const TableReader& table, std::size_t kind) {
  for (const KindTable& each : kKindTables) {
    if (table.Has(each.key) && std::ranges::find(each.kinds, kind) == each.kinds.end()) {
      table.Fail(each.key, fmt::format("behind a function of kind \"{}\"; the function begun last is of kind \"{}\"",
                                       kKinds[*each.kinds.begin()].name, kKinds[kind].name));
    }
  }
}

class DeviceReader {
 public:
  explicit DeviceReader(std::filesystem::path folder) : folder_(std::move(folder)) {}

  PciFunction Function(TableReader& table) const;

 private:
  Medium ReadMedium(TableReader& table, std::uint32_t blockSize) const;
  Drive ReadDrive(TableReader& table, bool removableByDefault) const;
  std::vector<UsbDevice> UsbDevices(TableReader& table) const;
  NetworkController ReadNetwork(TableReader& table) const;
  Controller ReadController(std::size_t kind, TableReader& table) const;

  template <typename Device, typename Read>
  std::vector<Device> Devices(TableReader& table, const char* key, Read read) const {
    std::vector<Device> devices;
    for (TableReader& element : table.Tables(key)) {
      Device device;
      device.present = element.Boolean("present", true);
      read(element, device);
      element.Finish();
      devices.push_back(std::move(device));
    }
    return devices;
  }

  std::filesystem::path folder_;
  mutable std::set<MacAddress> macs_;  // of the ports read so far
};

Medium DeviceReader::ReadMedium(TableReader& table, std::uint32_t blockSize) const {
  Medium medium;
  const std::string image = table.Text("image");
  const std::string folder = table.Text("folder");
  medium.label = table.Text("label");
  DiskImageOptions options;
  options.blockSize = static_cast<std::uint32_t>(table.Integer("block_size", blockSize, 512, 4096));
  options.claimedSize = table.Integer("claimed_size", 0, 0, INT64_MAX);
  if (!image.empty() && !folder.empty()) {
    table.Fail("folder", "either an image or a folder, not both");
  }
  if (!image.empty()) {
    std::string error;
    if (std::filesystem::is_directory(folder_ / image)) {
      table.Fail("image", "a disk image, but this is a folder; the key 'folder' shows one as a volume");
    }
    medium.blocks = OpenDiskImage(folder_ / image, options, error);
    if (medium.blocks == nullptr) {
      table.Fail("image", "a readable disk image: " + error);
    }
  }
  if (!folder.empty()) {
    medium.folder = folder_ / folder;
    if (!std::filesystem::is_directory(medium.folder)) {
      table.Fail("folder", "an existing folder");
    }
  }
  return medium;
}

Drive DeviceReader::ReadDrive(TableReader& table, bool removableByDefault) const {
  Drive drive;
  drive.kind = static_cast<DriveKind>(table.Word("drive", {"disk", "cdrom", "floppy"}, 0));
  drive.removable = table.Boolean("removable", removableByDefault || drive.kind != DriveKind::Disk);
  drive.vendor = table.Text("vendor", drive.vendor);
  drive.model = table.Text("model", drive.model);
  drive.revision = table.Text("revision", drive.revision);
  drive.serial = table.Text("serial");
  drive.medium = ReadMedium(table, drive.kind == DriveKind::CdRom ? 2048 : 512);
  return drive;
}

std::vector<UsbDevice> DeviceReader::UsbDevices(TableReader& table) const {
  return Devices<UsbDevice>(table, "usb", [this](TableReader& element, UsbDevice& device) {
    device.kind = static_cast<UsbKind>(element.Word("kind", {"hub", "keyboard", "mouse", "storage"}, 3));
    device.port = static_cast<std::uint8_t>(element.RequiredInteger("port", 0, 254));
    device.interfaceNumber = static_cast<std::uint8_t>(element.Integer("interface", 0, 0, 255));
    device.vendorId = static_cast<std::uint16_t>(element.Integer("vendor_id", device.vendorId, 0, 0xFFFF));
    device.productId = static_cast<std::uint16_t>(element.Integer("product_id", device.productId, 0, 0xFFFF));
    if (device.kind == UsbKind::Hub) {
      device.devices = UsbDevices(element);
      return;
    }
    if (device.kind != UsbKind::MassStorage) {
      return;
    }
    constexpr std::array kTransports{UsbTransport::BulkOnly, UsbTransport::CbiInterrupt, UsbTransport::Cbi};
    device.transport = kTransports[element.Word("transport", {"bulk-only", "cbi-interrupt", "cbi"}, 0)];
    Drive drive = ReadDrive(element, true);
    device.serial = drive.serial;
    device.product = drive.model;
    device.manufacturer = drive.vendor;
    device.units.push_back(std::move(drive));
  });
}

NetworkController DeviceReader::ReadNetwork(TableReader& table) const {
  NetworkPort port;
  const auto mac = ParseMac(table.RequiredText("mac"));
  if (!mac) {
    table.Fail("mac", "six hexadecimal bytes of two digits with colons between them, such as \"02:00:00:00:00:01\"");
  }
  if (!macs_.insert(*mac).second) {
    table.Fail("mac", "an address of the port's own; another port has this one");
  }
  port.mac = *mac;
  port.mediaPresent = table.Boolean("link", true);
  port.ipv4 = table.Boolean("ipv4", true);
  port.ipv6 = table.Boolean("ipv6", true);
  port.bootMacNode = table.Boolean("boot_mac_node", false);
  const std::string bootFile = table.Text("boot_file");
  if (!bootFile.empty()) {
    port.boot.imageFile = folder_ / bootFile;
    if (!std::filesystem::is_regular_file(port.boot.imageFile)) {
      table.Fail("boot_file", "an existing file");
    }
  }
  return {{std::move(port)}};
}

Controller DeviceReader::ReadController(std::size_t kind, TableReader& table) const {
  switch (kind) {
    case kIsa: {
      IsaBridge isa;
      isa.keyboard = table.Boolean("keyboard", true);
      isa.mouse = table.Boolean("mouse", true);
      isa.serialPorts = static_cast<std::uint32_t>(table.Integer("serial_ports", 2, 0, 4));
      isa.floppyController = table.Boolean("floppy_controller", false);
      if (auto floppy = table.Table("floppy")) {
        isa.floppy.present = floppy->Boolean("present", true);
        isa.floppy.medium = ReadMedium(*floppy, 512);
        floppy->Finish();
      }
      return isa;
    }
    case kAhci:
      return AhciController{Devices<SataDevice>(table, "sata", [this](TableReader& element, SataDevice& device) {
        device.port = static_cast<std::uint16_t>(element.RequiredInteger("port", 0, 31));
        device.multiplierPort = static_cast<std::uint16_t>(element.Integer("multiplier_port", 0xFFFF, 0, 0xFFFF));
        device.drive = ReadDrive(element, false);
      })};
    case kIde:
      return IdeController{Devices<AtapiDevice>(table, "ide", [this](TableReader& element, AtapiDevice& device) {
        device.secondary = element.Word("channel", {"primary", "secondary"}, 0) == 1;
        device.slave = element.Word("place", {"master", "slave"}, 0) == 1;
        device.serialAta = element.Boolean("serial_ata", false);
        device.drive = ReadDrive(element, false);
      })};
    case kNvme:
      return NvmeController{Devices<NvmeNamespace>(table, "namespace", [this](TableReader& element, NvmeNamespace& ns) {
        ns.id = static_cast<std::uint32_t>(element.Integer("id", 1, 1, 0xFFFFFFFE));
        ns.eui64 = element.OptionalWide("eui64").value_or(0);
        ns.drive = ReadDrive(element, false);
      })};
    case kSas:
    case kRaid: {
      ScsiController scsi;
      scsi.extendedPassThru = table.Boolean("extended_pass_thru", true);
      scsi.olderPassThru = table.Boolean("older_pass_thru", false);
      scsi.devices = Devices<ScsiDevice>(table, "scsi", [this](TableReader& element, ScsiDevice& device) {
        device.target = static_cast<std::uint16_t>(element.RequiredInteger("target", 0, 0xFFFF));
        device.lun = element.Integer("lun", 0, 0, 0xFFFF);
        device.sasAddress = element.OptionalWide("sas_address");
        device.drive = ReadDrive(element, false);
      });
      return scsi;
    }
    case kEhci:
    case kXhci:
      return UsbHostController{UsbDevices(table)};
    case kNetwork:
      return ReadNetwork(table);
    case kVga: {
      DisplayController display;
      display.width = static_cast<std::uint32_t>(table.Integer("width", display.width, 320, 16384));
      display.height = static_cast<std::uint32_t>(table.Integer("height", display.height, 200, 16384));
      return display;
    }
    case kBridge: {
      PciBridge bridge;
      if (const auto bus = table.OptionalInteger("secondary_bus", 1, 255)) {
        bridge.secondaryBus = static_cast<std::uint8_t>(*bus);
      }
      for (TableReader& element : table.Tables("function")) {
        bridge.functions.push_back(Function(element));
      }
      return bridge;
    }
    default:
      return NoController{};
  }
}

PciFunction DeviceReader::Function(TableReader& table) const {
  const std::size_t kind = table.RequiredWord("kind", KindNames());
  PciFunction function;
  function.present = table.Boolean("present", true);
  function.device = static_cast<std::uint8_t>(table.RequiredInteger("device", 0, 31));
  function.function = static_cast<std::uint8_t>(table.Integer("number", 0, 0, 7));
  function.vendorId = static_cast<std::uint16_t>(table.Integer("vendor_id", function.vendorId, 0, 0xFFFE));
  function.deviceId = static_cast<std::uint16_t>(table.Integer("device_id", function.deviceId, 0, 0xFFFF));
  function.subsystemVendorId =
      static_cast<std::uint16_t>(table.Integer("subsystem_vendor_id", function.subsystemVendorId, 0, 0xFFFF));
  function.subsystemId = static_cast<std::uint16_t>(table.Integer("subsystem_id", 0, 0, 0xFFFF));
  function.classCode = static_cast<std::uint32_t>(table.Integer("class_code", kKinds[kind].classCode, 0, 0xFFFFFF));
  function.embedded = table.Boolean("embedded", false);
  function.driver = table.Boolean("driver", true);
  if (table.Boolean("legacy_rom", false)) {
    function.optionRom = LegacyOptionRom(function.vendorId, function.deviceId, function.classCode);
  }
  function.driverName = Utf16OfText(table.Text("driver_name"));
  function.controllerName = Utf16OfText(table.Text("controller_name"));
  FailForOtherKindsTables(table, kind);
  function.controller = ReadController(kind, table);
  table.Finish();
  return function;
}

// Called behind each entry: what does not fit now is that entry's doing.
void FailUnlessFitting(const DeviceTree& tree, const TableReader& entry) {
  const std::string fault = CheckDeviceTree(tree);
  if (!fault.empty()) {
    entry.Fail("", "devices that fit together: " + fault);
  }
}

// A last bus that is not given is the one before the segment's next root bridge, so that one first_bus is enough to
// part two of them.
struct BusRanges {
  std::vector<bool> given;  // by root bridge

  void Settle(DeviceTree& tree, const TableReader& table, bool lastGiven) {
    given.push_back(lastGiven);
    RootBridge& added = tree.rootBridges.back();
    for (std::size_t i = 0; i + 1 < tree.rootBridges.size(); ++i) {
      RootBridge& other = tree.rootBridges[i];
      if (other.segment != added.segment) {
        continue;
      }
      Part(other, given[i], added);
      Part(added, lastGiven, other);
      if (added.firstBus <= other.lastBus && other.firstBus <= added.lastBus) {
        table.Fail("first_bus", fmt::format("buses of its own: root bridge {} has {} to {} of segment {}", other.uid,
                                            other.firstBus, other.lastBus, other.segment));
      }
    }
  }

 private:
  static void Part(RootBridge& lower, bool lastGiven, const RootBridge& upper) {
    if (!lastGiven && lower.firstBus < upper.firstBus && lower.lastBus >= upper.firstBus) {
      lower.lastBus = static_cast<std::uint8_t>(upper.firstBus - 1);
    }
  }
};

}  // namespace

DeviceTree ReadDeviceTree(TableReader& root, const std::filesystem::path& folder) {
  const DeviceReader reader(folder);
  DeviceTree tree;
  BusRanges buses;
  for (TableReader& table : root.Tables("root_bridge")) {
    const std::size_t number = tree.rootBridges.size();
    RootBridge& bridge = tree.rootBridges.emplace_back();
    bridge.uid = static_cast<std::uint32_t>(table.Integer("uid", number, 0, 0xFFFFFFFF));
    bridge.express = table.Boolean("express", false);
    bridge.segment = static_cast<std::uint32_t>(table.Integer("segment", 0, 0, 0xFFFF));
    bridge.firstBus = static_cast<std::uint8_t>(table.Integer("first_bus", 0, 0, 255));
    bridge.lastBus = static_cast<std::uint8_t>(table.Integer("last_bus", 255, 0, 255));
    FailUnlessFitting(tree, table);
    buses.Settle(tree, table, table.Has("last_bus"));
    for (TableReader& element : table.Tables("function")) {
      bridge.functions.push_back(reader.Function(element));
      FailUnlessFitting(tree, element);
    }
    table.Finish();
  }
  return tree;
}

}  // namespace sim
