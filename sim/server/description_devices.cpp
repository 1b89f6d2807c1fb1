// The device part of a description: root bridges, PCI functions by kind, and what hangs on each controller.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>

#include "platform/pci_config.h"
#include "platform/veyra_pci_io_properties.h"
#include "sim/bus/option_rom.h"
#include "sim/bus/pci_slots.h"
#include "sim/bus/utf_text.h"
#include "sim/server/description.h"
#include "sim/server/drive_reader.h"
#include "sim/server/network_reader.h"
#include "sim/server/usb_reader.h"

namespace sim {
namespace {

struct Kind {
  const char* name;
  std::uint32_t classCode;
  std::uint16_t vendorId = 0x8086;
  std::uint16_t deviceId = 0x0001;
};
constexpr std::array kKinds{
    Kind{"isa", 0x060100},
    Kind{"ahci", 0x010601},
    Kind{"ide", 0x01018A},
    Kind{"nvme", 0x010802},
    Kind{"sas", 0x010700},
    Kind{"ehci", 0x0C0320},
    Kind{"xhci", 0x0C0330},
    Kind{"network", 0x020000},
    Kind{"vga", 0x030000},
    Kind{"bridge", 0x060400},
    Kind{"raid", 0x010400},
    Kind{"other", 0xFF0000},
    Kind{"fc", 0x0C0400},
    Kind{"iscsi", 0x018000},
    Kind{"vnic", 0x020000, kVirtualCardVendor, kVirtualNicDevice},
    Kind{"vhba", 0x0C0400, kVirtualCardVendor, kVirtualHbaDevice},
};
enum KindIndex {
  kIsa,
  kAhci,
  kIde,
  kNvme,
  kSas,
  kEhci,
  kXhci,
  kNetwork,
  kVga,
  kBridge,
  kRaid,
  kOther,
  kFibre,
  kIscsi,
  kVirtualNic,
  kVirtualHba
};

// The board's own names of functions, as the platform tells them.
constexpr std::array kBoardClasses{std::uint16_t{0}, kPciClassLomPort, kPciClassChipsetStorage};

std::vector<std::string> KindNames() {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) {
    names.emplace_back(kind.name);
  }
  return names;
}

// The tables that hang on one kind of function only.
struct KindTable {
  const char* key;
  std::initializer_list<KindIndex> kinds;
};
const KindTable kKindTables[] = {
    {"sata", {kAhci}},  {"ide", {kIde}},         {"namespace", {kNvme}},  {"scsi", {kSas, kRaid}},
    {"floppy", {kIsa}}, {"usb", {kEhci, kXhci}}, {"function", {kBridge}},
    {"lun", {kFibre, kVirtualHba}}, {"iscsi", {kNetwork, kVirtualNic, kIscsi}}, {"nvm", {kNetwork}},
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
  explicit DeviceReader(std::filesystem::path folder) : drives_(std::move(folder)) {}

  PciFunction Function(TableReader& table) const;
  PciSlot Slot(TableReader& table) const;

 private:
  Controller ReadController(std::size_t kind, TableReader& table) const;

  NetworkController Network(TableReader& table, bool boots) const;

  DriveReader drives_;
  mutable std::set<decltype(NetworkPort::mac)> macs_;  // of the ports read so far
};

NetworkController DeviceReader::Network(TableReader& table, bool boots) const {
  NetworkController controller = ReadNetwork(table, drives_, boots);
  if (!macs_.insert(controller.ports.at(0).mac).second) {
    table.Fail("mac", "an address of the port's own; another port has this one");
  }
  return controller;
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
        isa.floppy.medium = drives_.ReadMedium(*floppy, 512);
        floppy->Finish();
      }
      return isa;
    }
    case kAhci:
      return AhciController{ReadDevices<SataDevice>(table, "sata", [this](TableReader& element, SataDevice& device) {
        device.port = static_cast<std::uint16_t>(element.RequiredInteger("port", 0, 31));
        device.multiplierPort = static_cast<std::uint16_t>(element.Integer("multiplier_port", 0xFFFF, 0, 0xFFFF));
        device.drive = drives_.ReadDrive(element, false);
      })};
    case kIde:
      return IdeController{ReadDevices<AtapiDevice>(table, "ide", [this](TableReader& element, AtapiDevice& device) {
        device.secondary = element.Word("channel", {"primary", "secondary"}, 0) == 1;
        device.slave = element.Word("place", {"master", "slave"}, 0) == 1;
        device.serialAta = element.Boolean("serial_ata", false);
        device.drive = drives_.ReadDrive(element, false);
      })};
    case kNvme:
      return NvmeController{
          ReadDevices<NvmeNamespace>(table, "namespace", [this](TableReader& element, NvmeNamespace& ns) {
            ns.id = static_cast<std::uint32_t>(element.Integer("id", 1, 1, 0xFFFFFFFE));
            ns.eui64 = element.OptionalWide("eui64").value_or(0);
            ns.drive = drives_.ReadDrive(element, false);
          })};
    case kSas:
    case kRaid: {
      ScsiController scsi;
      scsi.extendedPassThru = table.Boolean("extended_pass_thru", true);
      scsi.olderPassThru = table.Boolean("older_pass_thru", false);
      scsi.devices = ReadDevices<ScsiDevice>(table, "scsi", [this](TableReader& element, ScsiDevice& device) {
        device.target = static_cast<std::uint16_t>(element.RequiredInteger("target", 0, 0xFFFF));
        device.lun = element.Integer("lun", 0, 0, 0xFFFF);
        device.sasAddress = element.OptionalWide("sas_address");
        device.drive = drives_.ReadDrive(element, false);
      });
      return scsi;
    }
    case kEhci:
    case kXhci:
      return UsbHostController{ReadUsbDevices(table, drives_)};
    case kFibre:
    case kVirtualHba:
      return ReadFibre(table, drives_);
    case kNetwork:
    case kVirtualNic:
      return Network(table, true);
    case kIscsi:
      return Network(table, false);
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
  function.vendorId = static_cast<std::uint16_t>(table.Integer("vendor_id", kKinds[kind].vendorId, 0, 0xFFFE));
  function.deviceId = static_cast<std::uint16_t>(table.Integer("device_id", kKinds[kind].deviceId, 0, 0xFFFF));
  function.subsystemVendorId =
      static_cast<std::uint16_t>(table.Integer("subsystem_vendor_id", function.subsystemVendorId, 0, 0xFFFF));
  function.subsystemId = static_cast<std::uint16_t>(table.Integer("subsystem_id", 0, 0, 0xFFFF));
  function.classCode = static_cast<std::uint32_t>(table.Integer("class_code", kKinds[kind].classCode, 0, 0xFFFFFF));
  function.embedded = table.Boolean("embedded", false);
  function.memory = table.Boolean("memory", true);
  const bool onBoardNetwork = function.embedded && function.classCode >> 16 == PCI_CLASS_NETWORK;
  function.boardClass = kBoardClasses[table.Word("board_port", {"none", "lom", "storage"}, onBoardNetwork ? 1 : 0)];
  function.legacyBoot = table.Boolean("legacy_boot", true);
  function.driver = table.Boolean("driver", true);
  if (table.Boolean("legacy_rom", false)) {
    function.optionRom = LegacyOptionRom(function.vendorId, function.deviceId, function.classCode);
  }
  function.driverName = Utf16OfText(table.Text("driver_name"));
  function.controllerName = Utf16OfText(table.Text("controller_name"));
  FailForOtherKindsTables(table, kind);
  function.controller = ReadController(kind, table);
  if (auto nvm = table.Table("nvm")) {
    const auto& network = std::get<NetworkController>(function.controller);
    function.bars.push_back(AdapterMemory(ReadNvm(*nvm, function.function, network.ports.at(0).mac)));
  }
  table.Finish();
  return function;
}

SlotTold Told(TableReader& table) {
  SlotTold told;
  told.kind = static_cast<std::uint8_t>(table.Integer("kind", told.kind, 0, 255));
  if (table.Has("name")) {
    told.name = Utf16OfText(table.Text("name"));
  }
  const auto id = [&table](const char* key) -> std::optional<std::uint16_t> {
    const auto value = table.OptionalInteger(key, 0, 0xFFFF);
    return value ? std::optional(static_cast<std::uint16_t>(*value)) : std::nullopt;
  };
  told.vendorId = id("vendor_id");
  told.deviceId = id("device_id");
  told.subsystemVendorId = id("subsystem_vendor_id");
  told.subsystemId = id("subsystem_id");
  return told;
}

PciSlot DeviceReader::Slot(TableReader& table) const {
  PciSlot slot;
  slot.number = static_cast<std::uint8_t>(table.RequiredInteger("number", 1, kSlotPlaces.size()));
  slot.enabled = table.Boolean("enabled", true);
  slot.riser = table.Boolean("riser", false);
  slot.told = Told(table);
  for (TableReader& element : table.Tables("function")) {
    const std::size_t port = element.Integer("root_port", 0, 0, kRiserPorts - 1);
    slot.functions[port].push_back(Function(element));
  }
  table.Finish();
  return slot;
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
    buses.Settle(tree, table, table.Has("last_bus"));
    FailUnlessFitting(tree, table);
    for (TableReader& element : table.Tables("function")) {
      bridge.functions.push_back(reader.Function(element));
      FailUnlessFitting(tree, element);
    }
    table.Finish();
  }
  for (TableReader& table : root.Tables("slot")) {
    const std::string fault = PlugSlot(tree, reader.Slot(table));
    if (!fault.empty()) {
      table.Fail("", "a slot that fits the others: " + fault);
    }
    FailUnlessFitting(tree, table);
  }
  return tree;
}

}  // namespace sim
