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
