// A server's devices as plain values: PCI root bridges, the functions behind them, what hangs on each controller, and
// the media inside. A description file fills it, tests build it in a few lines; BuildDevices makes drivers out of it.
//   DeviceTree tree;
//   tree.rootBridges.resize(1);
//   tree.rootBridges[0].functions = {Ahci(0x1F, 2, {SataDisk(0, disk)}), UsbHost(0x1D, 0, {UsbStick(1, stick)})};
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "sim/storage/block_source.h"

namespace sim {

// What is in a drive. Empty: a drive without a medium. A folder of the host stands for one volume without partitions.
struct Medium {
  BlockSourcePtr blocks;
  std::filesystem::path folder;
  std::string label;  // of a folder's volume
  [[nodiscard]] bool Present() const { return blocks != nullptr || !folder.empty(); }
};

enum class DriveKind { Disk, CdRom, Floppy };

// What any drive tells about itself. Identify data and INQUIRY answers are made from it; longer texts are cut.
struct Drive {
  DriveKind kind = DriveKind::Disk;
  bool removable = false;         // CD-ROM and floppy drives always are
  bool attached = true;           // false: a USB device's unit of this number is not there
  std::string vendor = "SIM";     // 8 characters, INQUIRY only
  std::string model = "DISK";     // 40 characters in Identify data, 16 in INQUIRY
  std::string revision = "1.00";  // 8 characters in Identify data, 4 in INQUIRY
  std::string serial;             // 20 characters
  Medium medium;
};

struct SataDevice {
  bool present = true;
  std::uint16_t port = 0;
  std::uint16_t multiplierPort = 0xFFFF;  // 0xFFFF: directly attached
  Drive drive;
};

struct AtapiDevice {
  bool present = true;
  bool secondary = false;  // channel
  bool slave = false;
  std::uint16_t lun = 0;
  bool serialAta = false;  // Identify word 76 tells a SATA drive behind an IDE interface
  Drive drive;
};

struct NvmeNamespace {
  bool present = true;
  std::uint32_t id = 1;
  std::uint64_t eui64 = 0;  // as the device path node holds it
  Drive drive;
};

struct ScsiDevice {
  bool present = true;
  std::uint16_t target = 0;
  std::uint64_t lun = 0;
  std::optional<std::uint64_t> sasAddress;  // given: a SASEX node, the address big-endian in it; else a SCSI node
  Drive drive;
};

// How a Fibre Channel unit appears in device paths: the node of older or of newer drivers. Either holds the port name
// byte by byte in the order in which it is written down.
enum class FibreNode { FibreEx, Fibre };

struct FibreChannelLun {
  bool present = true;
  std::uint64_t portName = 0;  // of the target; the first byte written down is the highest
  std::uint64_t lun = 0;
  FibreNode node = FibreNode::FibreEx;
  Drive drive;
};

// A disk that a network port reaches over iSCSI.
struct IscsiLun {
  bool present = true;
  std::string target;  // the target's iSCSI name
  std::uint16_t portalGroup = 1;
  std::uint64_t lun = 0;
  Drive drive;
};

enum class UsbKind { Hub, Keyboard, Mouse, MassStorage };
enum class UsbTransport : std::uint8_t { BulkOnly = 0x50, CbiInterrupt = 0x00, Cbi = 0x01 };
// How the units behind LUN 0 appear in device paths; LUN 0 is the device itself.
enum class UsbUnitNode { LogicalUnit, Scsi };

struct UsbDevice {
  bool present = true;
  UsbKind kind = UsbKind::MassStorage;
  std::uint8_t port = 0;  // ParentPortNumber of the device path node, counted from 0
  std::uint8_t interfaceNumber = 0;
  std::uint16_t vendorId = 0x0D15;
  std::uint16_t productId = 0xC0DE;
  std::string manufacturer;
  std::string product;
  std::string serial;              // empty: the device has no serial number string
  std::vector<UsbDevice> devices;  // behind a hub
  UsbTransport transport = UsbTransport::BulkOnly;
  UsbUnitNode unitNode = UsbUnitNode::LogicalUnit;
  std::vector<Drive> units;  // mass storage: one per LUN
};

// What a network port answers when an image is to be booted from it.
struct NetworkBoot {
  std::vector<std::byte> image;       // used when not empty
  std::filesystem::path imageFile;    // else this host file
  EFI_STATUS status = EFI_NOT_FOUND;  // else this status: nobody answered
};

struct NetworkPort {
  std::array<std::uint8_t, 6> mac{};
  bool mediaPresent = true;  // false: LoadFile answers EFI_NO_MEDIA
  bool ipv4 = true;          // offers an IPv4 child with load file
  bool ipv6 = true;
  bool bootMacNode = false;    // offers load file on the MAC node itself
  bool identifier = true;      // publishes the network interface identifier,
  bool oldIdentifier = false;  // and the one of the first revision
  NetworkBoot boot;
  std::vector<IscsiLun> iscsi;
};

struct FloppyDrive {
  bool present = true;
  Medium medium;
};

// The controllers, by the driver that serves them. A function without one is there in configuration space only.
struct NoController {};
struct IsaBridge {
  bool keyboard = true;
  bool mouse = true;
  std::uint32_t serialPorts = 2;  // UIDs from 0
  bool floppyController = false;  // PNP0604
  FloppyDrive floppy{.present = false, .medium = {}};
};
struct AhciController {
  std::vector<SataDevice> devices;
};
struct IdeController {
  std::vector<AtapiDevice> devices;
};
struct NvmeController {
  std::vector<NvmeNamespace> namespaces;
};
struct ScsiController {
  std::vector<ScsiDevice> devices;
  bool extendedPassThru = true;
  bool olderPassThru = false;
  std::uint32_t adapterId = 7;
};
struct FibreChannelController {
  std::vector<FibreChannelLun> luns;
};
struct UsbHostController {
  std::vector<UsbDevice> devices;
};
struct NetworkController {
  std::vector<NetworkPort> ports;  // nearly always one
};
struct DisplayController {
  std::uint32_t width = 1024;
  std::uint32_t height = 768;
};
struct PciFunction;
struct PciBridge {
  std::optional<std::uint8_t> secondaryBus;  // not given: the next free number
  std::vector<PciFunction> functions;
};

using Controller =
    std::variant<NoController, IsaBridge, AhciController, IdeController, NvmeController, ScsiController,
                 UsbHostController, NetworkController, DisplayController, PciBridge, FibreChannelController>;

// Memory or I/O behind a base address register, for functions whose registers software reads.
class BarModel {
 public:
  virtual ~BarModel() = default;
  // `width` is 1, 2, 4 or 8 bytes, and the access lies within the register's size.
  virtual std::uint64_t Read(std::uint64_t offset, unsigned width) = 0;
  virtual void Write(std::uint64_t offset, unsigned width, std::uint64_t value) = 0;
};

struct PciBar {
  std::uint8_t index = 0;  // 0 to 5
  bool io = false;
  std::uint64_t size = 4096;        // in bytes, a power of two, at least 16
  std::shared_ptr<BarModel> model;  // null: reads as zeros, writes are lost
};

struct PciFunction {
  bool present = true;
  std::uint8_t device = 0;    // 0 to 31
  std::uint8_t function = 0;  // 0 to 7
  std::uint16_t vendorId = 0x8086;
  std::uint16_t deviceId = 0x0001;
  std::uint16_t subsystemVendorId = 0x1137;
  std::uint16_t subsystemId = 0;
  std::uint8_t revision = 0;
  std::uint32_t classCode = 0xFF0000;  // class, subclass, programming interface: 0x010601 is AHCI
  bool embedded = false;               // on the board: the embedded-device attribute
  bool memory = true;                  // false: it does not decode its memory until software has it do so
  std::uint16_t boardClass = 0;        // what the platform tells of it: VEYRA_PCI_IO_PROPERTIES::Class
  bool legacyBoot = true;              // false: what hangs on it has no BBS entries
  bool driver = true;                  // false: no driver serves the controller (its option ROM is not run)
  std::u16string driverName;           // component names; empty: the driver's own, and no controller name
  std::u16string controllerName;
  std::vector<PciBar> bars;
  std::vector<std::byte> optionRom;  // one with a legacy image is served by the thunk driver too
  Controller controller;
};

struct RootBridge {
  std::uint32_t uid = 0;
  bool express = false;  // PNP0A08 instead of PNP0A03 in its device path
  std::uint32_t segment = 0;
  std::uint8_t firstBus = 0;
  std::uint8_t lastBus = 0xFF;
  std::vector<PciFunction> functions;
};

// What the platform tells of a slot besides the buses behind it. What is not given is told as it is.
struct SlotTold {
  std::uint8_t kind = 2;  // kPciSlotKindAdapter
  std::optional<std::u16string> name;
  std::optional<std::uint16_t> vendorId;  // of the adapter
  std::optional<std::uint16_t> deviceId;
  std::optional<std::uint16_t> subsystemVendorId;
  std::optional<std::uint16_t> subsystemId;
};

// A slot that the platform tells of; PlugSlot puts it and its root ports into a tree (pci_slots.h).
struct SlotRecord {
  std::uint8_t number = 1;
  bool enabled = true;
  bool riser = false;
  SlotTold told;
};

struct DeviceTree {
  std::vector<RootBridge> rootBridges;
  std::vector<SlotRecord> slots;
  bool slotInformation = true;  // the platform tells of its slots,
  bool pciProperties = true;    // and of its PCI functions
};

// Identifiers of a virtual interface card's functions.
inline constexpr std::uint16_t kVirtualCardVendor = 0x1137;
inline constexpr std::uint16_t kVirtualNicDevice = 0x0043;
inline constexpr std::uint16_t kVirtualHbaDevice = 0x0045;

// Short forms with the usual class codes, for tests and descriptions.
[[nodiscard]] PciFunction Ahci(std::uint8_t device, std::uint8_t function, std::vector<SataDevice> devices);
[[nodiscard]] PciFunction Ide(std::uint8_t device, std::uint8_t function, std::vector<AtapiDevice> devices);
[[nodiscard]] PciFunction Nvme(std::uint8_t device, std::uint8_t function, std::vector<NvmeNamespace> namespaces);
[[nodiscard]] PciFunction Sas(std::uint8_t device, std::uint8_t function, std::vector<ScsiDevice> devices);
// An EHCI controller, or with `xhci` an XHCI one.
[[nodiscard]] PciFunction UsbHost(std::uint8_t device, std::uint8_t function, std::vector<UsbDevice> devices,
                                  bool xhci = false);
[[nodiscard]] PciFunction Network(std::uint8_t device, std::uint8_t function, std::array<std::uint8_t, 6> mac);
// A Fibre Channel adapter.
[[nodiscard]] PciFunction FibreChannel(std::uint8_t device, std::uint8_t function, std::vector<FibreChannelLun> luns);
// Functions of a virtual interface card: a network port, a Fibre Channel adapter.
[[nodiscard]] PciFunction VirtualNic(std::uint8_t device, std::uint8_t function, std::array<std::uint8_t, 6> mac);
[[nodiscard]] PciFunction VirtualHba(std::uint8_t device, std::uint8_t function, std::vector<FibreChannelLun> luns);
[[nodiscard]] PciFunction Isa(std::uint8_t device, std::uint8_t function);
[[nodiscard]] PciFunction Display(std::uint8_t device, std::uint8_t function, bool embedded);
[[nodiscard]] PciFunction Bridge(std::uint8_t device, std::uint8_t function, std::vector<PciFunction> functions);
[[nodiscard]] SataDevice SataDisk(std::uint16_t port, BlockSourcePtr disk, std::string serial = "S1");
[[nodiscard]] SataDevice SataDvd(std::uint16_t port, BlockSourcePtr disc);
[[nodiscard]] UsbDevice UsbStick(std::uint8_t port, BlockSourcePtr disk, std::string serial = "U1");
[[nodiscard]] UsbDevice UsbDvd(std::uint8_t port, BlockSourcePtr disc);
[[nodiscard]] UsbDevice UsbHub(std::uint8_t port, std::vector<UsbDevice> devices);
[[nodiscard]] UsbDevice UsbKeyboard(std::uint8_t port);

// What is wrong with the tree, as a text for its maker: two functions or devices in one place, a number out of range.
// Empty when nothing is.
[[nodiscard]] std::string CheckDeviceTree(const DeviceTree& tree);

}  // namespace sim
