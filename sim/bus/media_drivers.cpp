// Each of these reads through the protocol below it, as any driver would.
#include "sim/bus/media_drivers.h"

#include "sim/bus/block_device.h"
#include "sim/bus/drive_identity.h"
#include "sim/bus/drive_objects.h"
#include "sim/bus/file_volume.h"
#include "sim/bus/network_device.h"
#include "sim/bus/usb_interface.h"
#include "sim/storage/partitions.h"
#include "sim/storage/volume_probe.h"

namespace sim {
namespace {

using Children = std::vector<BusChild>;

class UsbMassStorageDriver final : public BusDriver {
 public:
  explicit UsbMassStorageDriver(Machine& machine)
      : BusDriver(machine, {.name = u"USB Mass Storage Driver", .consumed = ProtocolGuid<EFI_USB_IO_PROTOCOL>}) {}

 private:
  [[nodiscard]] bool Serves(void* consumed) override {
    auto* usbIo = static_cast<EFI_USB_IO_PROTOCOL*>(consumed);
    EFI_USB_INTERFACE_DESCRIPTOR descriptor{};
    if (EFI_ERROR(usbIo->UsbGetInterfaceDescriptor(usbIo, &descriptor))) return false;
    return descriptor.InterfaceClass == USB_CLASS_MASS_STORAGE;
  }

  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath& path, Children& children) override {
    const UsbDevice& device = UsbInterface::From(static_cast<EFI_USB_IO_PROTOCOL*>(consumed)).Device();
    for (std::size_t lun = 0; lun < device.units.size(); ++lun) {
      if (!device.units[lun].attached) continue;
      BusChild child{.objects = MakeDriveObjects(device.units[lun])};
      child.objects.push_back(DiskInfo::Scsi(device.units[lun], gEfiDiskInfoUsbInterfaceGuid));
      if (lun > 0) child.path = UnitPath(path, device.unitNode, static_cast<std::uint8_t>(lun));
      children.push_back(std::move(child));
    }
    return EFI_SUCCESS;
  }

  static DevicePath UnitPath(DevicePath path, UsbUnitNode kind, std::uint8_t lun) {
    if (kind == UsbUnitNode::Scsi) return path.Scsi(0, lun);
    return path.Append(MESSAGING_DEVICE_PATH, MSG_LOGICAL_UNIT_DP, DEVICE_LOGICAL_UNIT_DEVICE_PATH{{}, lun});
  }
};

class NetworkBootDriver final : public BusDriver {
 public:
  explicit NetworkBootDriver(Machine& machine)
      : BusDriver(machine, {.name = u"Network Boot Driver", .consumed = ProtocolGuid<EFI_SIMPLE_NETWORK_PROTOCOL>}) {}

 private:
  [[nodiscard]] bool Serves(void* consumed) override {
    const NetworkPort& port = PortOf(consumed);
    return port.ipv4 || port.ipv6;
  }

  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath& path, Children& children) override {
    const NetworkPort& port = PortOf(consumed);
    const auto add = [&](DevicePath child) {
      children.push_back({.path = std::move(child), .objects = {std::make_shared<NetworkLoadFile>(port)}});
    };
    if (port.ipv4) add(DevicePath(path).IPv4());
    if (port.ipv6) add(DevicePath(path).IPv6());
    return EFI_SUCCESS;
  }

  static const NetworkPort& PortOf(void* consumed) {
    return NetworkInterface::From(static_cast<EFI_SIMPLE_NETWORK_PROTOCOL*>(consumed)).Port();
  }
};

class PartitionDriver final : public BusDriver {
 public:
  explicit PartitionDriver(Machine& machine)
      : BusDriver(machine, {.name = u"Partition Driver", .consumed = ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>}) {}

 private:
  [[nodiscard]] bool Serves(void* consumed) override {
    const EFI_BLOCK_IO_MEDIA& media = *static_cast<EFI_BLOCK_IO_PROTOCOL*>(consumed)->Media;
    return media.MediaPresent && !media.LogicalPartition;
  }

  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath& path, Children& children) override {
    auto* blockIo = static_cast<EFI_BLOCK_IO_PROTOCOL*>(consumed);
    const BlockSourcePtr whole = MakeBlockIoSource(blockIo);
    if (whole == nullptr) return EFI_NO_MEDIA;
    std::vector<Partition> partitions;
    if (const EFI_STATUS status = DiscoverPartitions(*whole, partitions); EFI_ERROR(status)) return status;
    const std::uint64_t block = whole->BlockSize();
    for (const Partition& partition : partitions) {
      if (partition.blockCount > UINT64_MAX / block / 2 || partition.startBlock > UINT64_MAX / block / 2) continue;
      auto part = std::make_shared<BlockWindow>(whole, partition.startBlock * block, partition.blockCount * block);
      const BlockDeviceTraits traits{.removable = blockIo->Media->RemovableMedia != 0, .logicalPartition = true};
      BusChild child{.path = PartitionPath(path, partition),
                     .objects = {std::make_shared<BlockDevice>(std::move(part), traits)}};
      if (partition.efiSystem) child.marks.push_back(kEfiSystemPartitionType);
      children.push_back(std::move(child));
    }
    return EFI_SUCCESS;
  }

  static DevicePath PartitionPath(DevicePath path, const Partition& partition) {
    if (partition.scheme == PartitionScheme::ElTorito) {
      return path.CdRom(partition.number, partition.startBlock, partition.blockCount);
    }
    HARDDRIVE_DEVICE_PATH node{};
    node.PartitionNumber = partition.number;
    node.PartitionStart = partition.startBlock;
    node.PartitionSize = partition.blockCount;
    std::copy(partition.signature.begin(), partition.signature.end(), node.Signature);
    node.MBRType = partition.scheme == PartitionScheme::Gpt ? 2 : 1;
    node.SignatureType = node.MBRType;
    return path.Append(MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, node);
  }
};

class FatDriver final : public BusDriver {
 public:
  explicit FatDriver(Machine& machine)
      : BusDriver(machine, {.name = u"FAT File System Driver", .consumed = ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>}) {}

 private:
  [[nodiscard]] bool Serves(void* consumed) override {
    const BlockSourcePtr volume = MakeBlockIoSource(static_cast<EFI_BLOCK_IO_PROTOCOL*>(consumed));
    return volume != nullptr && ProbeVolume(*volume) == VolumeKind::Fat;
  }

  [[nodiscard]] EFI_STATUS Enumerate(void* consumed, const DevicePath&, Children& children) override {
    const BlockSourcePtr volume = MakeBlockIoSource(static_cast<EFI_BLOCK_IO_PROTOCOL*>(consumed));
    if (volume == nullptr) return EFI_NO_MEDIA;
    const auto open = [volume](auto& reader) { return OpenFileSystem(volume, reader); };
    children.push_back({.objects = {std::make_shared<FileVolume>(open)}});
    return EFI_SUCCESS;
  }
};

}  // namespace

std::unique_ptr<BusDriver> MakeUsbMassStorageDriver(Machine& machine) {
  return std::make_unique<UsbMassStorageDriver>(machine);
}

std::unique_ptr<BusDriver> MakeNetworkBootDriver(Machine& machine) {
  return std::make_unique<NetworkBootDriver>(machine);
}

std::unique_ptr<BusDriver> MakePartitionDriver(Machine& machine) { return std::make_unique<PartitionDriver>(machine); }

std::unique_ptr<BusDriver> MakeFatDriver(Machine& machine) { return std::make_unique<FatDriver>(machine); }

}  // namespace sim
