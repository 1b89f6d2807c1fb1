// What hangs on each kind of controller, as children with their device path nodes and protocols.
#include "sim/bus/pci_drivers.h"

#include <algorithm>
#include <set>

#include "platform/csm_policy.h"
#include "sim/bus/display_device.h"
#include "sim/bus/drive_identity.h"
#include "sim/bus/drive_objects.h"
#include "sim/bus/network_device.h"
#include "sim/bus/option_rom.h"
#include "sim/bus/pci_io.h"
#include "sim/bus/pci_properties.h"
#include "sim/bus/root_bridge_io.h"
#include "sim/bus/san_nodes.h"
#include "sim/bus/scsi_adapter.h"
#include "sim/bus/usb_interface.h"

namespace sim {
namespace {

using Children = std::vector<BusChild>;

class PciBusDriver final : public BusDriver {
 public:
  PciBusDriver(Machine& machine, bool tellsProperties)
      : BusDriver(machine, {.name = u"PCI Bus Driver",
                            .consumed = ProtocolGuid<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>,
                            .needsChild = false}),
        tellsProperties_(tellsProperties) {}

 private:
  [[nodiscard]] bool Serves(void*) override { return true; }
  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath&, Children& children) override {
    for (const auto& node : RootBridgeIo::From(static_cast<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL*>(consumed)).Nodes()) {
      BusChild child{.path = node->Path(), .objects = {std::make_shared<PciIo>(*node, Context())}};
      if (tellsProperties_) child.objects.push_back(std::make_shared<PciProperties>(node->Function()));
      children.push_back(std::move(child));
    }
    return EFI_SUCCESS;
  }

  bool tellsProperties_;
};

// A drive's child: block I/O (and a folder's volume) with its disk info.
BusChild DriveChild(std::optional<DevicePath> path, const Drive& drive, std::shared_ptr<DeviceObject> info) {
  BusChild child{.path = std::move(path), .objects = MakeDriveObjects(drive)};
  child.objects.push_back(std::move(info));
  return child;
}

void Populate(const NoController&, const BusContext&, const DevicePath&, Children&) {}
void Populate(const PciBridge&, const BusContext&, const DevicePath&, Children&) {}

constexpr std::uint32_t kPs2Keyboard = 0x030341D0;
constexpr std::uint32_t kPs2Mouse = 0x0F0341D0;
constexpr std::uint32_t kSerialPort = 0x050141D0;
constexpr std::uint32_t kFloppyController = 0x060441D0;

void Populate(const IsaBridge& isa, const BusContext&, const DevicePath& parent, Children& children) {
  const auto add = [&](std::uint32_t hid, std::uint32_t uid) {
    DevicePath path = parent;
    children.push_back({.path = path.Acpi(hid, uid)});
  };
  if (isa.keyboard) add(kPs2Keyboard, 0);
  if (isa.mouse) add(kPs2Mouse, 0);
  for (std::uint32_t uid = 0; uid < isa.serialPorts; ++uid) add(kSerialPort, uid);
  if (!isa.floppyController && !isa.floppy.present) return;
  add(kFloppyController, 0);
  if (!isa.floppy.present) return;
  Drive drive;
  drive.kind = DriveKind::Floppy;
  drive.removable = true;
  drive.medium = isa.floppy.medium;
  children.back().objects = MakeDriveObjects(drive);
}

void Populate(const AhciController& ahci, const BusContext&, const DevicePath& parent, Children& children) {
  for (const SataDevice& device : ahci.devices) {
    if (!device.present) continue;
    DevicePath path = parent;
    path.Sata(device.port, device.multiplierPort);
    children.push_back(DriveChild(
        path, device.drive,
        DiskInfo::Ata(device.drive, gEfiDiskInfoAhciInterfaceGuid, true, device.port, device.multiplierPort)));
  }
}

void Populate(const IdeController& ide, const BusContext&, const DevicePath& parent, Children& children) {
  for (const AtapiDevice& device : ide.devices) {
    if (!device.present) continue;
    ATAPI_DEVICE_PATH node{};
    node.PrimarySecondary = device.secondary;
    node.SlaveMaster = device.slave;
    node.Lun = device.lun;
    DevicePath path = parent;
    path.Append(MESSAGING_DEVICE_PATH, MSG_ATAPI_DP, node);
    children.push_back(DriveChild(
        path, device.drive,
        DiskInfo::Ata(device.drive, gEfiDiskInfoIdeInterfaceGuid, device.serialAta, device.secondary, device.slave)));
  }
}

void Populate(const NvmeController& nvme, const BusContext&, const DevicePath& parent, Children& children) {
  for (const NvmeNamespace& item : nvme.namespaces) {
    if (!item.present) continue;
    DevicePath path = parent;
    path.Nvme(item.id, item.eui64);
    children.push_back(DriveChild(path, item.drive, DiskInfo::Nvme(item.drive)));
  }
}

void Populate(const ScsiController& scsi, const BusContext& context, const DevicePath& parent, Children& children) {
  children.push_back({.objects = {std::make_shared<ScsiAdapter>(scsi, context)}});
  for (const ScsiDevice& device : scsi.devices) {
    if (!device.present) continue;
    DevicePath path = parent;
    path.Append(ScsiDeviceNode(device));
    children.push_back(DriveChild(path, device.drive, DiskInfo::Scsi(device.drive, gEfiDiskInfoScsiInterfaceGuid)));
  }
}

void Populate(const FibreChannelController& fibre, const BusContext&, const DevicePath& parent, Children& children) {
  for (const FibreChannelLun& unit : fibre.luns) {
    if (!unit.present) continue;
    children.push_back(
        DriveChild(FibrePath(parent, unit), unit.drive, DiskInfo::Scsi(unit.drive, gEfiDiskInfoScsiInterfaceGuid)));
  }
}

void AddUsbDevices(const std::vector<UsbDevice>& devices, const BusContext& context, const DevicePath& parent,
                   Children& children) {
  for (const UsbDevice& device : devices) {
    if (!device.present) continue;
    DevicePath path = parent;
    path.Usb(device.port, device.interfaceNumber);
    children.push_back({.path = path, .objects = {std::make_shared<UsbInterface>(device, context)}});
    AddUsbDevices(device.devices, context, path, children);
  }
}

void Populate(const UsbHostController& usb, const BusContext& context, const DevicePath& parent, Children& children) {
  AddUsbDevices(usb.devices, context, parent, children);
}

void Populate(const NetworkController& network, const BusContext&, const DevicePath& parent, Children& children) {
  for (const NetworkPort& port : network.ports) {
    DevicePath path = parent;
    path.Mac(port.mac);
    BusChild child{.path = path, .objects = {std::make_shared<NetworkInterface>(port)}};
    if (port.bootMacNode) child.objects.push_back(std::make_shared<NetworkLoadFile>(port));
    children.push_back(std::move(child));
    for (const IscsiLun& unit : port.iscsi) {
      if (!unit.present) continue;
      children.push_back(
          DriveChild(IscsiPath(path, unit), unit.drive, DiskInfo::Scsi(unit.drive, gEfiDiskInfoScsiInterfaceGuid)));
    }
  }
}

// ACPI 6.4, B.3.2: _ADR of a display: type VGA, first head, on the standard numbering.
constexpr std::uint32_t kVgaAddress = 0x80010100;
constexpr UINT8 kAcpiAdrSubType = 3;

void Populate(const DisplayController& display, const BusContext& context, const DevicePath& parent,
              Children& children) {
  DevicePath path = parent;
  path.AppendRaw(ACPI_DEVICE_PATH, kAcpiAdrSubType, std::as_bytes(std::span(&kVgaAddress, 1)));
  children.push_back({.path = path, .objects = {std::make_shared<DisplayDevice>(display, context)}});
}

// The drivers' own names, by the controller's place in the variant.
constexpr std::u16string_view kDriverNames[] = {u"",
                                                u"ISA Bus Driver",
                                                u"AHCI Driver",
                                                u"IDE Driver",
                                                u"NVM Express Driver",
                                                u"SCSI Adapter Driver",
                                                u"USB Host Controller Driver",
                                                u"Network Interface Driver",
                                                u"Display Driver",
                                                u"",
                                                u"Fibre Channel Driver"};
static_assert(std::size(kDriverNames) == std::variant_size_v<Controller>);

const PciFunction& FunctionOf(void* consumed) {
  return PciIo::From(static_cast<EFI_PCI_IO_PROTOCOL*>(consumed)).Node().Function();
}

class ControllerDriver final : public BusDriver {
 public:
  ControllerDriver(Machine& machine, std::size_t kind, std::u16string name)
      : BusDriver(machine, {.name = name.empty() ? std::u16string(kDriverNames[kind]) : name,
                            .consumed = ProtocolGuid<EFI_PCI_IO_PROTOCOL>,
                            .needsChild = false}),
        kind_(kind),
        name_(std::move(name)) {}

 private:
  [[nodiscard]] bool Serves(void* consumed) override {
    const PciFunction& function = FunctionOf(consumed);
    return function.driver && function.controller.index() == kind_ && function.driverName == name_;
  }
  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath& path, Children& children) override {
    std::visit([&](const auto& controller) { Populate(controller, Context(), path, children); },
               FunctionOf(consumed).controller);
    return EFI_SUCCESS;
  }
  [[nodiscard]] std::u16string NameOf(void* consumed) const override { return FunctionOf(consumed).controllerName; }

  std::size_t kind_;
  std::u16string name_;
};

// Base classes whose ROMs a BIOS runs: INT 13h, UNDI and INT 10h.
bool IsThunkClass(std::uint32_t classCode) {
  const std::uint32_t base = classCode >> 16;
  return base == 0x01 || base == 0x02 || base == 0x03;
}

bool HasThunk(const PciFunction& function) {
  return IsThunkClass(function.classCode) && HasLegacyImage(function.optionRom);
}

bool AnyThunk(const std::vector<PciFunction>& functions) {
  return std::any_of(functions.begin(), functions.end(), [](const PciFunction& function) {
    const auto* bridge = std::get_if<PciBridge>(&function.controller);
    return HasThunk(function) || (bridge != nullptr && AnyThunk(bridge->functions));
  });
}

class ThunkDriver final : public BusDriver {
 public:
  explicit ThunkDriver(Machine& machine)
      : BusDriver(machine, {.name = u"Legacy Option ROM Driver",
                            .consumed = ProtocolGuid<EFI_PCI_IO_PROTOCOL>,
                            .version = kVersion,
                            .needsChild = false,
                            .mark = &kThunkDriverMarkGuid}) {}

 private:
  static constexpr UINT32 kVersion = 0x1;  // below every native driver's

  [[nodiscard]] bool Serves(void* consumed) override { return HasThunk(FunctionOf(consumed)); }
  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath& path, Children& children) override {
    std::visit([&](const auto& controller) { Populate(controller, Context(), path, children); },
               FunctionOf(consumed).controller);
    return EFI_SUCCESS;
  }
  [[nodiscard]] std::u16string NameOf(void* consumed) const override { return FunctionOf(consumed).controllerName; }
};

void CollectKinds(const std::vector<PciFunction>& functions, std::set<std::pair<std::size_t, std::u16string>>& kinds) {
  for (const PciFunction& function : functions) {
    if (!kDriverNames[function.controller.index()].empty()) {
      kinds.insert({function.controller.index(), function.driverName});
    }
    if (const auto* bridge = std::get_if<PciBridge>(&function.controller)) CollectKinds(bridge->functions, kinds);
  }
}

}  // namespace

std::unique_ptr<BusDriver> MakePciBusDriver(Machine& machine, const DeviceTree& tree) {
  return std::make_unique<PciBusDriver>(machine, tree.pciProperties);
}

std::vector<std::unique_ptr<BusDriver>> MakeControllerDrivers(Machine& machine, const DeviceTree& tree) {
  std::set<std::pair<std::size_t, std::u16string>> kinds;
  for (const RootBridge& bridge : tree.rootBridges) CollectKinds(bridge.functions, kinds);
  std::vector<std::unique_ptr<BusDriver>> drivers;
  for (const auto& [kind, name] : kinds) {
    drivers.push_back(std::make_unique<ControllerDriver>(machine, kind, name));
  }
  return drivers;
}

std::unique_ptr<BusDriver> MakeThunkDriver(Machine& machine, const DeviceTree& tree) {
  const bool any = std::any_of(tree.rootBridges.begin(), tree.rootBridges.end(),
                               [](const RootBridge& bridge) { return AnyThunk(bridge.functions); });
  return any ? std::make_unique<ThunkDriver>(machine) : nullptr;
}

}  // namespace sim
