// Whole trees on a machine: ConnectController makes every handle, DisconnectController takes them away again.
#include <algorithm>
#include <set>

#include "platform/block_io.h"
#include "platform/disk_info.h"
#include "platform/ext_scsi_pass_thru.h"
#include "platform/graphics_output.h"
#include "platform/load_file.h"
#include "platform/network_interface_identifier.h"
#include "platform/pci_io.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/simple_file_system.h"
#include "platform/usb_io.h"
#include "sim/bus/device_set.h"
#include "sim/firmware/sim_driver.h"
#include "sim/storage/partitions.h"
#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

constexpr EFI_GUID kPartitionId{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};

DevicePath Root() { return DevicePath().Acpi(0x0A0341D0, 0); }

class Connected : public testing::Test {
 protected:
  void Build(std::vector<PciFunction> functions, bool connect = true) {
    DeviceTree tree;
    tree.rootBridges.resize(1);
    tree.rootBridges[0].functions = std::move(functions);
    ASSERT_EQ(CheckDeviceTree(tree), "");
    devices_ = &BuildDevices(machine_, std::move(tree), {.connected = connect});
  }

  template <typename Protocol>
  std::vector<EFI_HANDLE> With() {
    const auto found = machine_.Handles().With(ProtocolGuid<Protocol>);
    return {found.begin(), found.end()};
  }

  // The handle that carries exactly this path; null when none does.
  EFI_HANDLE At(const DevicePath& path) {
    for (EFI_HANDLE handle : With<EFI_DEVICE_PATH_PROTOCOL>()) {
      if (DevicePath::Copy(machine_.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle)) == path) return handle;
    }
    return nullptr;
  }

  template <typename Protocol>
  Protocol* ProtocolAt(const DevicePath& path) {
    EFI_HANDLE handle = At(path);
    return handle == nullptr ? nullptr : machine_.Handles().Get<Protocol>(handle);
  }

  static BlockSourcePtr GptDisk() {
    Bytes disk = MakeGptDisk(8192, 512, {{kEfiSystemPartitionType, kPartitionId, 64, 6207}});
    const Bytes volume = ReadFileBytes(Volume());
    std::copy(volume.begin(), volume.end(), disk.begin() + 64 * 512);
    return MakeMemoryDisk(std::move(disk));
  }

  // A FAT12 volume of 3 MiB with one loader, made once.
  static std::filesystem::path Volume() {
    static const TemporaryFolder folder;
    static const std::filesystem::path image =
        MakeImage(folder, "fat", "3 --fat 12 " + folder.Write("l", "loader").string() + "=EFI/BOOT/BOOTX64.EFI");
    return image;
  }

  Machine machine_;
  DeviceSet* devices_ = nullptr;
};

TEST_F(Connected, NothingExistsBeforeTheRootBridgeIsConnected) {
  Build({Ahci(0x1F, 2, {SataDisk(0, GptDisk())})}, false);
  EXPECT_EQ(With<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>().size(), 1U);
  EXPECT_TRUE(With<EFI_PCI_IO_PROTOCOL>().empty());
  ASSERT_EQ(machine_.ConnectController(devices_->RootBridgeHandles()[0], nullptr, nullptr, false), EFI_SUCCESS);
  EXPECT_EQ(With<EFI_PCI_IO_PROTOCOL>().size(), 1U);
  EXPECT_TRUE(With<EFI_BLOCK_IO_PROTOCOL>().empty()) << "not recursive";
}

TEST_F(Connected, SataDiskHasPartitionAndFiles) {
  Build({Ahci(0x1F, 2, {SataDisk(3, GptDisk(), "SERIAL")})});
  const DevicePath disk = Root().Pci(0x1F, 2).Sata(3);
  ASSERT_NE(At(disk), nullptr);
  auto* info = ProtocolAt<EFI_DISK_INFO_PROTOCOL>(disk);
  ASSERT_NE(info, nullptr);
  UINT32 port = 0;
  UINT32 other = 0;
  EXPECT_EQ(info->WhichIde(info, &port, &other), EFI_SUCCESS);
  EXPECT_EQ(port, 3U);
  const DevicePath partition = DevicePath(disk).HardDriveGpt(1, 64, 6144, kPartitionId);
  auto* blockIo = ProtocolAt<EFI_BLOCK_IO_PROTOCOL>(partition);
  ASSERT_NE(blockIo, nullptr);
  EXPECT_TRUE(blockIo->Media->LogicalPartition);
  EXPECT_EQ(blockIo->Media->LastBlock, 6143U);
  EXPECT_NE(machine_.Handles().Find(At(partition), kEfiSystemPartitionType), nullptr);
  auto* system = ProtocolAt<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(partition);
  ASSERT_NE(system, nullptr);
  EFI_FILE_PROTOCOL* root = nullptr;
  ASSERT_EQ(system->OpenVolume(system, &root), EFI_SUCCESS);
  EFI_FILE_PROTOCOL* file = nullptr;
  ASSERT_EQ(root->Open(root, &file, u"\\EFI\\BOOT\\BOOTX64.EFI", EFI_FILE_MODE_READ, 0), EFI_SUCCESS);
  char text[16] = {};
  UINTN size = sizeof text;
  ASSERT_EQ(file->Read(file, &size, text), EFI_SUCCESS);
  EXPECT_EQ(std::string(text, size), "loader");
  file->Close(file);
  root->Close(root);
}

TEST_F(Connected, EveryControllerMakesItsNodes) {
  ScsiDevice sas;
  sas.target = 2;
  sas.drive.medium.blocks = NumberedDisk(8);
  sas.sasAddress = 0x5000C50012345678;
  ScsiDevice scsi = sas;
  scsi.target = 3;
  scsi.sasAddress.reset();
  AtapiDevice atapi;
  atapi.slave = true;
  atapi.drive.kind = DriveKind::CdRom;
  NvmeNamespace nvme;
  nvme.eui64 = 0x1122;
  Build({Isa(0x1F, 0), Ide(0x1F, 1, {atapi}), Nvme(3, 0, {nvme}), Sas(4, 0, {sas, scsi}), Display(2, 0, true),
         Network(5, 0, {1, 2, 3, 4, 5, 6})});
  EXPECT_NE(At(Root().Pci(0x1F, 0).Acpi(0x030341D0, 0)), nullptr);
  EXPECT_NE(At(Root().Pci(0x1F, 0).Acpi(0x050141D0, 1)), nullptr);
  EXPECT_EQ(At(Root().Pci(0x1F, 0).Acpi(0x060441D0, 0)), nullptr) << "no floppy controller described";
  ATAPI_DEVICE_PATH node{};
  node.SlaveMaster = 1;
  EXPECT_NE(ProtocolAt<EFI_BLOCK_IO_PROTOCOL>(Root().Pci(0x1F, 1).Append(MESSAGING_DEVICE_PATH, MSG_ATAPI_DP, node)),
            nullptr);
  EXPECT_NE(ProtocolAt<EFI_BLOCK_IO_PROTOCOL>(Root().Pci(3, 0).Nvme(1, 0x1122)), nullptr);
  EXPECT_NE(ProtocolAt<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>(Root().Pci(4, 0)), nullptr);
  EXPECT_NE(ProtocolAt<EFI_BLOCK_IO_PROTOCOL>(Root().Pci(4, 0).Scsi(3, 0)), nullptr);
  EXPECT_EQ(With<EFI_BLOCK_IO_PROTOCOL>().size(), 4U);
  EXPECT_EQ(With<EFI_GRAPHICS_OUTPUT_PROTOCOL>().size(), 1U);
  const std::uint8_t mac[] = {1, 2, 3, 4, 5, 6};
  EXPECT_NE(ProtocolAt<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>(Root().Pci(5, 0).Mac(mac)), nullptr);
  EXPECT_NE(ProtocolAt<EFI_LOAD_FILE_PROTOCOL>(Root().Pci(5, 0).Mac(mac).IPv4()), nullptr);
  EXPECT_NE(ProtocolAt<EFI_LOAD_FILE_PROTOCOL>(Root().Pci(5, 0).Mac(mac).IPv6()), nullptr);
}

TEST_F(Connected, UsbDevicesHangBehindHubsAndUnitsBehindDevices) {
  std::string error;
  UsbDevice stick = UsbStick(2, OpenDiskImage(Volume(), {}, error));
  stick.units.resize(3, stick.units[0]);
  Build({UsbHost(0x1D, 0, {UsbHub(0, {stick, UsbKeyboard(3)})})});
  const DevicePath device = Root().Pci(0x1D, 0).Usb(0, 0).Usb(2, 0);
  EXPECT_EQ(With<EFI_USB_IO_PROTOCOL>().size(), 3U);
  auto* blockIo = ProtocolAt<EFI_BLOCK_IO_PROTOCOL>(device);
  ASSERT_NE(blockIo, nullptr);
  EXPECT_TRUE(blockIo->Media->RemovableMedia);
  EXPECT_NE(ProtocolAt<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(device), nullptr) << "a volume without partitions";
  const DevicePath unit =
      DevicePath(device).Append(MESSAGING_DEVICE_PATH, MSG_LOGICAL_UNIT_DP, DEVICE_LOGICAL_UNIT_DEVICE_PATH{{}, 2});
  EXPECT_NE(ProtocolAt<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(unit), nullptr);
}

TEST_F(Connected, AbsentAndDriverlessDevicesMakeNothing) {
  PciFunction quiet = Network(6, 0, {1});
  quiet.driver = false;
  SataDevice absent = SataDisk(1, NumberedDisk(8));
  absent.present = false;
  PciFunction gone = Network(7, 0, {2});
  gone.present = false;
  Build({Ahci(0x1F, 2, {SataDisk(0, NumberedDisk(8)), absent}), quiet, gone});
  EXPECT_EQ(With<EFI_BLOCK_IO_PROTOCOL>().size(), 1U);
  EXPECT_TRUE(With<EFI_LOAD_FILE_PROTOCOL>().empty());
  EXPECT_EQ(With<EFI_PCI_IO_PROTOCOL>().size(), 2U) << "configuration space is there without a driver";
}

TEST_F(Connected, DisconnectTakesEverythingAway) {
  Build({Ahci(0x1F, 2, {SataDisk(0, GptDisk())}), UsbHost(0x1D, 0, {UsbHub(0, {UsbKeyboard(1)})}), Network(5, 0, {1}),
         Sas(4, 0, {ScsiDevice{}}), Isa(0x1F, 0)});
  EFI_HANDLE root = devices_->RootBridgeHandles()[0];
  const std::size_t before = With<EFI_DEVICE_PATH_PROTOCOL>().size();
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(machine_.DisconnectController(root, nullptr, nullptr), EFI_SUCCESS);
    EXPECT_EQ(With<EFI_DEVICE_PATH_PROTOCOL>().size(), 1U);
    EXPECT_TRUE(With<EFI_BLOCK_IO_PROTOCOL>().empty());
    ASSERT_EQ(machine_.ConnectController(root, nullptr, nullptr, true), EFI_SUCCESS);
    EXPECT_EQ(With<EFI_DEVICE_PATH_PROTOCOL>().size(), before);
  }
  EXPECT_EQ(machine_.Counts().ComplaintCount(), 0U);
}

TEST_F(Connected, FileOpenAcrossADisconnectAnswersNoMedia) {
  Build({Ahci(0x1F, 2, {SataDisk(0, GptDisk())})});
  auto* system = machine_.Handles().Get<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(With<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>()[0]);
  EFI_FILE_PROTOCOL* root = nullptr;
  ASSERT_EQ(system->OpenVolume(system, &root), EFI_SUCCESS);
  ASSERT_EQ(machine_.DisconnectController(devices_->RootBridgeHandles()[0], nullptr, nullptr), EFI_SUCCESS);
  UINTN size = 0;
  EXPECT_EQ(root->Read(root, &size, nullptr), EFI_NO_MEDIA);
  EXPECT_EQ(root->Close(root), EFI_SUCCESS);
}

TEST_F(Connected, TruncatedAndDamagedDisksGiveNoVolumeButBlockIo) {
  Bytes damaged = MakeGptDisk(200, 512, {{kEfiSystemPartitionType, kPartitionId, 40, 59}});
  damaged[512 + 60] ^= std::byte{1};
  damaged[199 * 512 + 60] ^= std::byte{1};
  const BlockSourcePtr cut = MakeMemoryDisk(Bytes(100), {.blockSize = 512, .claimedSize = 1 << 20});
  Build({Ahci(0x1F, 2, {SataDisk(0, MakeMemoryDisk(damaged)), SataDisk(1, cut)})});
  EXPECT_EQ(With<EFI_BLOCK_IO_PROTOCOL>().size(), 2U);
  EXPECT_TRUE(With<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>().empty());
}

}  // namespace
}  // namespace sim::test
