// The device tree: below the longest path that a device's own begins with, and only the rest of it shown.
#include "sim/cli/device_tree_text.h"

#include <gtest/gtest.h>

#include "platform/block_io.h"
#include "sim/cli/protocol_names.h"

namespace sim {
namespace {

DevicePath Root(std::uint32_t uid) { return DevicePath().Acpi(0x0A0341D0, uid); }

TEST(DeviceTreeText, ChildrenStandBelowTheirParentsInWhateverOrderTheyCome) {
  const std::vector<DeviceLine> devices = {
      {Root(0).Pci(2, 0).Sata(1), {"BlockIo", "DiskInfo"}},
      {Root(1), {"PciRootBridgeIo"}},
      {Root(0), {"PciRootBridgeIo"}},
      {Root(0).Pci(2, 0), {}},
      {Root(1).Pci(3, 1).Sata(0), {"BlockIo"}},
  };
  EXPECT_EQ(DeviceTreeText(devices, {}),
            "PciRoot(0x1)  PciRootBridgeIo\n"
            "  Pci(0x3,0x1)/Sata(0x0,0xFFFF,0x0)  BlockIo\n"
            "PciRoot(0x0)  PciRootBridgeIo\n"
            "  Pci(0x2,0x0)\n"
            "    Sata(0x1,0xFFFF,0x0)  BlockIo, DiskInfo\n");
}

TEST(DeviceTreeText, TwoHandlesWithOnePathAreBothListed) {
  EXPECT_EQ(DeviceTreeText({{Root(0), {"A"}}, {Root(0), {"B"}}}, {}), "PciRoot(0x0)  A\nPciRoot(0x0)  B\n");
}

TEST(ProtocolShortName, KnownOnesAndOthers) {
  EXPECT_EQ(ProtocolShortName(ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>), "BlockIo");
  EXPECT_EQ(ProtocolShortName(EFI_GUID{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}), "00000001-0002-0003-0405-060708090A0B");
}

}  // namespace
}  // namespace sim
