// The short forms, and the checks that a tree can be built into a machine at all.
#include "sim/bus/device_tree.h"

#include <fmt/format.h>

#include <set>

namespace sim {
namespace {

PciFunction Make(std::uint8_t device, std::uint8_t function, std::uint32_t classCode, Controller controller) {
  PciFunction made;
  made.device = device;
  made.function = function;
  made.classCode = classCode;
  made.controller = std::move(controller);
  return made;
}

Drive MakeDrive(DriveKind kind, BlockSourcePtr blocks, std::string model, std::string serial) {
  Drive drive;
  drive.kind = kind;
  drive.removable = kind != DriveKind::Disk;
  drive.model = std::move(model);
  drive.serial = std::move(serial);
  drive.medium.blocks = std::move(blocks);
  return drive;
}

UsbDevice MakeUsb(std::uint8_t port, UsbKind kind, std::string product) {
  UsbDevice device;
  device.kind = kind;
  device.port = port;
  device.product = std::move(product);
  return device;
}

// Walks the tree and keeps the first fault.
class TreeChecker {
 public:
  void Check(const DeviceTree& tree) {
    std::set<std::uint32_t> uids;
    for (const RootBridge& bridge : tree.rootBridges) {
      if (!uids.insert(bridge.uid).second) Fault(fmt::format("two root bridges have the uid {}", bridge.uid));
      if (bridge.firstBus > bridge.lastBus)
        Fault(fmt::format("root bridge {}: its last bus is before its first", bridge.uid));
      CheckBuses(tree, bridge);
      CheckFunctions(bridge.functions, fmt::format("root bridge {}", bridge.uid), 0);
    }
  }
  std::string fault;

 private:
  static constexpr int kMaximumDepth = 16;

  void Fault(std::string text) {
    if (fault.empty()) fault = std::move(text);
  }

  // Configuration cycles carry a bus number alone, so that one number is one bus. Looks at the root bridges before it.
  void CheckBuses(const DeviceTree& tree, const RootBridge& bridge) {
    for (const RootBridge& other : tree.rootBridges) {
      if (&other == &bridge) return;
      if (other.segment == bridge.segment && other.firstBus <= bridge.lastBus && bridge.firstBus <= other.lastBus) {
        Fault(fmt::format("root bridges {} and {} have bus numbers in common", other.uid, bridge.uid));
      }
    }
  }

  void CheckFunctions(const std::vector<PciFunction>& functions, const std::string& where, int depth) {
    if (depth > kMaximumDepth) return Fault(where + ": bridges are nested too deeply");
    std::set<int> places;
    for (const PciFunction& function : functions) {
      const std::string name = fmt::format("{}, function {:02x}.{}", where, function.device, function.function);
      if (function.device > 31 || function.function > 7) Fault(name + ": device is 0 to 31, function 0 to 7");
      if (function.present && !places.insert(function.device * 8 + function.function).second) {
        Fault(name + ": the place is taken");
      }
      if (function.classCode > 0xFFFFFF) Fault(name + ": the class code has three bytes");
      CheckBars(function, name);
      std::visit([&](const auto& controller) { CheckController(controller, name, depth); }, function.controller);
    }
  }

  void CheckBars(const PciFunction& function, const std::string& name) {
    for (const PciBar& bar : function.bars) {
      const bool sized = bar.size >= 16 && (bar.size & (bar.size - 1)) == 0 && bar.size <= (1ULL << 31);
      if (bar.index > 5 || !sized) Fault(name + ": a BAR has an index of 0 to 5 and a power of two as size");
    }
  }

  template <typename Anything>
  void CheckController(const Anything&, const std::string&, int) {}

  void CheckController(const PciBridge& bridge, const std::string& name, int depth) {
    CheckFunctions(bridge.functions, name, depth + 1);
  }
  void CheckController(const AhciController& ahci, const std::string& name, int) {
    std::set<std::pair<int, int>> ports;
    for (const SataDevice& device : ahci.devices) {
      if (device.present && !ports.insert({device.port, device.multiplierPort}).second) {
        Fault(fmt::format("{}: two devices on SATA port {}", name, device.port));
      }
    }
  }
  void CheckController(const IdeController& ide, const std::string& name, int) {
    std::set<int> places;
    for (const AtapiDevice& device : ide.devices) {
      if (device.present && !places.insert(device.secondary * 2 + device.slave).second) {
        Fault(name + ": two devices in one place of an IDE channel");
      }
    }
  }
  void CheckController(const NvmeController& nvme, const std::string& name, int) {
    std::set<std::uint32_t> ids;
    for (const NvmeNamespace& item : nvme.namespaces) {
      if (item.present && (item.id == 0 || !ids.insert(item.id).second)) {
        Fault(fmt::format("{}: namespace ids begin at 1 and are not repeated", name));
      }
    }
  }
  void CheckController(const ScsiController& scsi, const std::string& name, int) {
    std::set<std::pair<int, std::uint64_t>> places;
    for (const ScsiDevice& device : scsi.devices) {
      if (device.present && !places.insert({device.target, device.lun}).second) {
        Fault(fmt::format("{}: two devices at target {}", name, device.target));
      }
    }
  }
  void CheckController(const FibreChannelController& fibre, const std::string& name, int) {
    std::set<std::pair<std::uint64_t, std::uint64_t>> places;
    for (const FibreChannelLun& unit : fibre.luns) {
      if (unit.present && !places.insert({unit.portName, unit.lun}).second) {
        Fault(fmt::format("{}: two units at {:016x}, LUN {}", name, unit.portName, unit.lun));
      }
    }
  }
  void CheckController(const NetworkController& network, const std::string& name, int) {
    for (const NetworkPort& port : network.ports) {
      std::set<std::pair<std::string, std::uint64_t>> places;
      for (const IscsiLun& unit : port.iscsi) {
        if (unit.present && !places.insert({unit.target, unit.lun}).second) {
          Fault(fmt::format("{}: two units at {}, LUN {}", name, unit.target, unit.lun));
        }
      }
    }
  }
  void CheckController(const UsbHostController& usb, const std::string& name, int) { CheckUsb(usb.devices, name, 0); }

  void CheckUsb(const std::vector<UsbDevice>& devices, const std::string& name, int depth) {
    if (depth > 6) return Fault(name + ": USB hubs are nested too deeply");
    std::set<int> ports;
    for (const UsbDevice& device : devices) {
      if (device.present && !ports.insert(device.port * 256 + device.interfaceNumber).second) {
        Fault(fmt::format("{}: two devices on USB port {}", name, device.port));
      }
      if (device.units.size() > 16) Fault(fmt::format("{}: more than 16 units on USB port {}", name, device.port));
      CheckUsb(device.devices, fmt::format("{}, USB port {}", name, device.port), depth + 1);
    }
  }
};

}  // namespace

PciFunction Ahci(std::uint8_t device, std::uint8_t function, std::vector<SataDevice> devices) {
  return Make(device, function, 0x010601, AhciController{std::move(devices)});
}

PciFunction Ide(std::uint8_t device, std::uint8_t function, std::vector<AtapiDevice> devices) {
  return Make(device, function, 0x01018A, IdeController{std::move(devices)});
}

PciFunction Nvme(std::uint8_t device, std::uint8_t function, std::vector<NvmeNamespace> namespaces) {
  return Make(device, function, 0x010802, NvmeController{std::move(namespaces)});
}

PciFunction Sas(std::uint8_t device, std::uint8_t function, std::vector<ScsiDevice> devices) {
  ScsiController controller;
  controller.devices = std::move(devices);
  return Make(device, function, 0x010700, std::move(controller));
}

PciFunction UsbHost(std::uint8_t device, std::uint8_t function, std::vector<UsbDevice> devices, bool xhci) {
  return Make(device, function, xhci ? 0x0C0330 : 0x0C0320, UsbHostController{std::move(devices)});
}

PciFunction Network(std::uint8_t device, std::uint8_t function, std::array<std::uint8_t, 6> mac) {
  NetworkPort port;
  port.mac = mac;
  return Make(device, function, 0x020000, NetworkController{{port}});
}

PciFunction FibreChannel(std::uint8_t device, std::uint8_t function, std::vector<FibreChannelLun> luns) {
  return Make(device, function, 0x0C0400, FibreChannelController{std::move(luns)});
}

PciFunction VirtualNic(std::uint8_t device, std::uint8_t function, std::array<std::uint8_t, 6> mac) {
  PciFunction made = Network(device, function, mac);
  made.vendorId = kVirtualCardVendor;
  made.deviceId = kVirtualNicDevice;
  return made;
}

PciFunction VirtualHba(std::uint8_t device, std::uint8_t function, std::vector<FibreChannelLun> luns) {
  PciFunction made = FibreChannel(device, function, std::move(luns));
  made.vendorId = kVirtualCardVendor;
  made.deviceId = kVirtualHbaDevice;
  return made;
}

PciFunction Isa(std::uint8_t device, std::uint8_t function) { return Make(device, function, 0x060100, IsaBridge{}); }

PciFunction Display(std::uint8_t device, std::uint8_t function, bool embedded) {
  PciFunction made = Make(device, function, 0x030000, DisplayController{});
  made.embedded = embedded;
  return made;
}

PciFunction Bridge(std::uint8_t device, std::uint8_t function, std::vector<PciFunction> functions) {
  return Make(device, function, 0x060400, PciBridge{std::nullopt, std::move(functions)});
}

SataDevice SataDisk(std::uint16_t port, BlockSourcePtr disk, std::string serial) {
  SataDevice device;
  device.port = port;
  device.drive = MakeDrive(DriveKind::Disk, std::move(disk), "DISK", std::move(serial));
  return device;
}

SataDevice SataDvd(std::uint16_t port, BlockSourcePtr disc) {
  SataDevice device;
  device.port = port;
  device.drive = MakeDrive(DriveKind::CdRom, std::move(disc), "DVD", "");
  return device;
}

UsbDevice UsbStick(std::uint8_t port, BlockSourcePtr disk, std::string serial) {
  UsbDevice device = MakeUsb(port, UsbKind::MassStorage, "Stick");
  device.serial = serial;
  device.units = {MakeDrive(DriveKind::Disk, std::move(disk), "Stick", std::move(serial))};
  device.units[0].removable = true;
  return device;
}

UsbDevice UsbDvd(std::uint8_t port, BlockSourcePtr disc) {
  UsbDevice device = MakeUsb(port, UsbKind::MassStorage, "DVD");
  device.units = {MakeDrive(DriveKind::CdRom, std::move(disc), "DVD", "")};
  return device;
}

UsbDevice UsbHub(std::uint8_t port, std::vector<UsbDevice> devices) {
  UsbDevice hub = MakeUsb(port, UsbKind::Hub, "Hub");
  hub.devices = std::move(devices);
  return hub;
}

UsbDevice UsbKeyboard(std::uint8_t port) { return MakeUsb(port, UsbKind::Keyboard, "Keyboard"); }

std::string CheckDeviceTree(const DeviceTree& tree) {
  TreeChecker checker;
  checker.Check(tree);
  return checker.fault;
}

}  // namespace sim
