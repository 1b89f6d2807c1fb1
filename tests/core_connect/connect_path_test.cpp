// Connecting along a device path, and all drivers.
#include <gmock/gmock.h>

#include <list>

#include "core/connect_device_path.h"
#include "core/legacy_io_nodes.h"
#include "core/steps.h"
#include "platform/block_io.h"
#include "platform/legacy_bios.h"
#include "platform/pci_root_bridge_io.h"
#include "tests/core_connect/connect_recorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConnectPathTest : public test::ConnectTest {
 protected:
  sim::DevicePath root = sim::DevicePath().Acpi(0x0A0341D0);
  sim::DevicePath port = sim::DevicePath(root).Pci(3, 0);
  sim::DevicePath disk = sim::DevicePath(port).Sata(1);
};

TEST_F(ConnectPathTest, EachRoundConnectsTheNearestControllerTowardsTheRest) {
  EFI_HANDLE rootHandle = InstallPath(root);
  std::vector<EFI_HANDLE> made;
  recorder.Answer = [&](const auto&) {
    if (made.size() < 2) {
      made.push_back(InstallPath(made.empty() ? port : disk));
    }
    return EFI_SUCCESS;
  };
  bds::ConnectDevicePath(disk.Get());
  ASSERT_EQ(recorder.Calls.size(), 3U);
  EXPECT_THAT(recorder.Connected(), ElementsAre(rootHandle, made[0], made[1]));
  EXPECT_EQ(recorder.Calls[0].Rest, sim::DevicePath().Pci(3, 0).Sata(1));
  EXPECT_EQ(recorder.Calls[1].Rest, sim::DevicePath().Sata(1));
  EXPECT_FALSE(recorder.Calls[1].Recursive);
  EXPECT_TRUE(recorder.Calls[2].Recursive);
}

TEST_F(ConnectPathTest, AConnectionWithoutProgressOrWithAnErrorEndsTheInstance) {
  EFI_HANDLE rootHandle = InstallPath(root);
  bds::ConnectDevicePath(disk.Get());
  EXPECT_THAT(recorder.Connected(), ElementsAre(rootHandle));
  recorder.Calls.clear();
  recorder.Answer = [](const auto&) { return EFI_NOT_FOUND; };
  bds::ConnectDevicePath(disk.Get());
  EXPECT_THAT(recorder.Connected(), ElementsAre(rootHandle));
}

TEST_F(ConnectPathTest, EachInstanceIsTriedWhateverBecameOfTheOneBefore) {
  EFI_HANDLE handle = InstallPath(disk);
  sim::DevicePath unknown = sim::DevicePath().Acpi(0x050141D0);
  unknown.NextInstance(disk);
  bds::ConnectDevicePath(unknown.Get());
  EXPECT_THAT(recorder.Connected(), ElementsAre(handle));
}

TEST_F(ConnectPathTest, AVariableIsConnectedOnlyWhenItIsADevicePath) {
  EFI_HANDLE handle = InstallPath(disk);
  const test::Data good(disk.Bytes().begin(), disk.Bytes().end());
  test::Data shortNode = good;
  shortNode[2] = std::byte{2};
  test::Data endless(good.begin(), good.end() - 4);
  for (const test::Data& bad : {shortNode, endless, test::DataOf({1})}) {
    Set(u"ConOut", bad);
    bds::ConnectConOutVariable();
    EXPECT_THAT(recorder.Calls, IsEmpty());
  }
  bds::ConnectConInVariable();
  EXPECT_THAT(recorder.Calls, IsEmpty());
  Set(u"ConIn", good);
  bds::ConnectConInVariable();
  EXPECT_THAT(recorder.Connected(), ElementsAre(handle));
}

// Everything is connected through the handles that were there before the first step.
class ConnectEverythingTest : public test::ConnectTest {
 protected:
  void RememberBridge() {
    bds::gCore.IsaBridgePath = bds::CopyDevicePath(bridge.Get());
    bridgeHandle = InstallPath(bridge);
  }
  EFI_HANDLE bridgeHandle = nullptr;
  std::vector<EFI_HANDLE> handles;
  sim::DevicePath bridge = sim::DevicePath().Acpi(0x0A0341D0).Pci(0x1F, 0);
  sim::DevicePath floppy = sim::DevicePath(bridge).Acpi(bds::kFloppyController);
  sim::DevicePath oldFloppy = sim::DevicePath(bridge).Acpi(bds::kOldFloppyController);
};

TEST_F(ConnectEverythingTest, AFloppyControllerWithoutADriveIsDetached) {
  RememberBridge();
  EFI_HANDLE old = InstallPath(oldFloppy);
  static_cast<void>(bds::ConnectEverything());
  ASSERT_EQ(recorder.Calls.size(), 1U);
  EXPECT_EQ(recorder.Calls[0].Kind, 'D');
  EXPECT_EQ(recorder.Calls[0].Controller, bridgeHandle);
  EXPECT_EQ(recorder.Calls[0].Child, old);
  recorder.Calls.clear();
  EFI_BLOCK_IO_PROTOCOL blockIo{};
  EFI_HANDLE current = InstallPath(floppy);
  ASSERT_EQ(machine.Install(current, &blockIo), EFI_SUCCESS);
  static_cast<void>(bds::ConnectEverything());
  EXPECT_THAT(recorder.Calls, IsEmpty()) << "the first identifier that is there decides";
}

}  // namespace
