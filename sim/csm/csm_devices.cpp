// BBS entries of the devices that are there: disks, drives and network functions.
#include <algorithm>
#include <array>

#include "platform/block_io.h"
#include "platform/disk_info.h"
#include "platform/pci_config.h"
#include "platform/pci_io.h"
#include "platform/simple_network.h"
#include "sim/bus/device_set.h"
#include "sim/csm/csm.h"
#include "sim/csm/trimmed_text.h"

namespace sim {
namespace {

constexpr std::uint32_t kNoLocation = 0xFFFFFFFF;
constexpr std::size_t kOnboardSlots = 16;  // one per on-board disk port, from index 1

// Words 27 to 46 of the Identify data, each byte pair swapped (ATA/ATAPI-8, 7.16).
std::string AtaModel(EFI_DISK_INFO_PROTOCOL* disk) {
  std::array<UINT8, 512> identify{};
  UINT32 size = identify.size();
  if (disk == nullptr || EFI_ERROR(disk->Identify(disk, identify.data(), &size)) || size < 94) {
    return {};
  }
  std::string model;
  for (std::size_t i = 54; i < 94; i += 2) {
    model.push_back(static_cast<char>(identify[i + 1]));
    model.push_back(static_cast<char>(identify[i]));
  }
  return Trimmed(model);
}

// Vendor and product of the INQUIRY answer (SPC-4, 6.6.2).
std::string InquiryName(EFI_DISK_INFO_PROTOCOL* disk) {
  std::array<UINT8, 36> inquiry{};
  UINT32 size = inquiry.size();
  if (disk == nullptr || EFI_ERROR(disk->Inquiry(disk, inquiry.data(), &size))) {
    return {};
  }
  const std::string text(reinterpret_cast<const char*>(inquiry.data()), inquiry.size());
  return Trimmed(text.substr(8, 8)) + " " + Trimmed(text.substr(16, 16));
}

struct Location {
  std::uint32_t bus = kNoLocation;
  std::uint32_t device = kNoLocation;
  std::uint32_t function = kNoLocation;
  std::uint8_t classCode = 0;
  std::uint8_t subClass = 0;
  bool bootable = true;   // by the legacy BIOS
  bool embedded = false;  // on the board
  bool ownPort = false;   // the firmware's own driver boots its port, not an adapter's option ROM
};

Location Locate(Machine& machine, EFI_HANDLE handle) {
  Location location;
  auto* path = machine.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
  EFI_HANDLE function = nullptr;
  if (path == nullptr ||
      EFI_ERROR(machine.Handles().LocateDevicePath(&ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &path, &function))) {
    return location;
  }
  auto* pci = machine.Handles().Get<EFI_PCI_IO_PROTOCOL>(function);
  UINTN segment = 0;
  UINTN bus = 0;
  UINTN device = 0;
  UINTN number = 0;
  UINT8 classes[3] = {};
  if (EFI_ERROR(pci->GetLocation(pci, &segment, &bus, &device, &number)) ||
      EFI_ERROR(pci->Pci.Read(pci, EfiPciIoWidthUint8, 9, 3, classes))) {
    return location;
  }
  location = {static_cast<std::uint32_t>(bus), static_cast<std::uint32_t>(device), static_cast<std::uint32_t>(number),
              classes[2], classes[1]};
  const DeviceSet* devices = machine.Get<DeviceSet>();
  const PciFunction* described =
      devices == nullptr ? nullptr
                         : devices->FunctionAt({static_cast<std::uint32_t>(segment), static_cast<std::uint8_t>(bus),
                                                static_cast<std::uint8_t>(device), static_cast<std::uint8_t>(number)});
  if (described != nullptr) {
    location.bootable = described->legacyBoot;
    location.embedded = described->embedded;
    location.ownPort = described->embedded || described->vendorId == kVirtualCardVendor;
  }
  return location;
}

using NodeKind = std::pair<std::uint8_t, std::uint8_t>;  // type and subtype

std::vector<NodeKind> NodeKinds(const EFI_DEVICE_PATH_PROTOCOL* path) {
  const DevicePath copy = DevicePath::Copy(path);
  std::vector<NodeKind> kinds;
  for (std::size_t at = 0; at + sizeof(EFI_DEVICE_PATH_PROTOCOL) < copy.Size();) {
    const auto* node = reinterpret_cast<const std::uint8_t*>(copy.Bytes().data() + at);
    kinds.emplace_back(node[0], node[1]);
    at += node[2] | node[3] << 8;
  }
  return kinds;
}

bool HasNode(const EFI_DEVICE_PATH_PROTOCOL* path, std::uint8_t messagingSubType) {
  const auto kinds = NodeKinds(path);
  return std::find(kinds.begin(), kinds.end(), NodeKind{MESSAGING_DEVICE_PATH, messagingSubType}) != kinds.end();
}

// One in a storage network: it has nothing but its INQUIRY answer to be named by.
bool IsNetworkDisk(const EFI_DEVICE_PATH_PROTOCOL* path) {
  return HasNode(path, MSG_FIBRECHANNEL_DP) || HasNode(path, MSG_FIBRECHANNELEX_DP) || HasNode(path, MSG_ISCSI_DP);
}

// The handle of a network function's port, whose path has the MAC address; the function's own until a driver serves it.
EFI_HANDLE PortOf(Machine& machine, EFI_HANDLE function) {
  const DevicePath parent = DevicePath::Copy(machine.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(function));
  const auto nodes = parent.Bytes().first(parent.Size() - sizeof(EFI_DEVICE_PATH_PROTOCOL));
  for (const EFI_HANDLE port : machine.Handles().With(ProtocolGuid<EFI_SIMPLE_NETWORK_PROTOCOL>)) {
    const DevicePath path = DevicePath::Copy(machine.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(port));
    if (path.Size() > nodes.size() && std::equal(nodes.begin(), nodes.end(), path.Bytes().begin())) {
      return port;
    }
  }
  return function;
}

// A floppy drive is its controller's ACPI device itself; one on USB is told by its medium, of 2.88 MB at most.
bool IsFloppy(const EFI_DEVICE_PATH_PROTOCOL* path, const EFI_BLOCK_IO_MEDIA& media) {
  constexpr EFI_LBA kMostBytes = 2'949'120;
  const auto kinds = NodeKinds(path);
  const bool small = media.MediaPresent && media.RemovableMedia && media.LastBlock < kMostBytes / media.BlockSize;
  return !kinds.empty() &&
         (kinds.back() == NodeKind{ACPI_DEVICE_PATH, ACPI_DP} || (small && HasNode(path, MSG_USB_DP)));
}

}  // namespace

void Csm::AddDevice(EFI_HANDLE handle, std::uint16_t type, const std::string& text) {
  const Location location = Locate(machine_, handle);
  if (!location.bootable) {
    return;
  }
  const bool onBoard = location.classCode == 1 && (location.subClass == 1 || location.subClass == 6);
  std::size_t index = onBoard ? FreeIndex(1) : FreeIndex(kFirstFreeIndex);
  if (onBoard && index > kOnboardSlots) {
    index = FreeIndex(kFirstFreeIndex);
  }
  if (index >= kEntries) {
    return;
  }
  BbsEntryDescription entry;
  entry.index = static_cast<std::uint8_t>(index);
  entry.bus = location.bus;
  entry.device = location.device;
  entry.function = location.function;
  entry.classCode = location.classCode;
  entry.subClass = location.subClass;
  entry.deviceType = type;
  entry.description = text;
  AddDescribed(entry);
  table_[index].IBV1 = static_cast<UINT32>(reinterpret_cast<std::uint64_t>(handle));
  table_[index].IBV2 = static_cast<UINT32>(reinterpret_cast<std::uint64_t>(handle) >> 32);
}

void Csm::AddDeviceEntries(bool usb) {
  if (!description_.entriesFromDevices) {
    return;
  }
  for (const EFI_HANDLE handle : machine_.Handles().With(ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>)) {
    const auto* path = machine_.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
    const auto* block = machine_.Handles().Get<EFI_BLOCK_IO_PROTOCOL>(handle);
    if (path == nullptr || block->Media->LogicalPartition || HasNode(path, MSG_USB_DP) != usb || HasHandle(handle)) {
      continue;
    }
    if (HasNode(path, MSG_NVME_NAMESPACE_DP)) {
      continue;  // no option ROM serves them
    }
    const std::uint16_t type = block->Media->BlockSize == 2048 ? BBS_TYPE_CDROM
                               : IsFloppy(path, *block->Media) ? BBS_TYPE_FLOPPY
                                                               : BBS_TYPE_HARDDRIVE;
    auto* disk = machine_.Handles().Get<EFI_DISK_INFO_PROTOCOL>(handle);
    std::string text = IsNetworkDisk(path) ? InquiryName(disk) : AtaModel(disk);
    if (text.empty()) {
      text = usb ? "USB drive" : type == BBS_TYPE_FLOPPY ? "Floppy drive" : "SCSI drive";
    }
    AddDevice(handle, type, text);
  }
  for (const EFI_HANDLE handle : machine_.Handles().With(ProtocolGuid<EFI_PCI_IO_PROTOCOL>)) {
    const Location location = Locate(machine_, handle);
    if (usb || location.classCode != PCI_CLASS_NETWORK) {
      continue;
    }
    const EFI_HANDLE port = location.ownPort ? PortOf(machine_, handle) : handle;
    if (!HasHandle(handle) && !HasHandle(port)) {
      AddDevice(port, location.embedded ? BBS_TYPE_EMBEDDED_NETWORK : BBS_TYPE_BEV, "PXE network boot");
    }
  }
}

}  // namespace sim
