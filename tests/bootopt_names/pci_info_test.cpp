// What configuration space says, in words.
#include "bootopt/names/pci_info.h"
#include "bootopt/names/pci_tables.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/fake_pci.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

using fake::Path;

TEST(PciTables, KnownAndUnknownCodes) {
  EXPECT_STREQ(PciClassName(0x00), "Pre 2.0 device");
  EXPECT_STREQ(PciClassName(0x11), "Data Acquisition & Signal Processing Controllers");
  EXPECT_STREQ(PciClassName(0xFF), "Device does not fit in any defined classes");
  EXPECT_STREQ(PciClassName(0x12), "UNDEFINED");
  EXPECT_STREQ(PciSubClassName(0x01, 0x06), "SATA");
  EXPECT_STREQ(PciSubClassName(0x01, 0x7F), "UNDEFINED");
  EXPECT_STREQ(PciSubClassName(0x12, 0x00), "UNDEFINED");
  EXPECT_STREQ(PciInterfaceName(0x0C, 0x03, 0x30), "xHCI");
  EXPECT_STREQ(PciInterfaceName(0x0C, 0x03, 0x31), "UNDEFINED");
  EXPECT_STREQ(PciVendorName(0x1000), "LSI Logic");
  EXPECT_STREQ(PciVendorName(0x9005), "Adaptec");
  EXPECT_EQ(PciVendorName(0x1234), nullptr);
  EXPECT_EQ(PciVendorName(0xFFFF), nullptr);
}

class PciInfo : public fake::BootListsTest {};

TEST_F(PciInfo, ComesFromTheFunctionNearestToThePathsEnd) {
  test::FakePci bridge(6, 4, 0x34);
  test::FakePci controller(1, 6, 0x1137);
  controller.Bus = 2;
  controller.Device = 0x1F;
  controller.Function = 3;
  controller.Config[9] = 0x01;
  const auto upper = fake::PciRoot().Node(1, 1, {0, 1});
  const auto lower = Path(upper).Node(1, 1, {3, 0x1F});
  Fw.Install(Fw.NewHandle(upper), &bridge.PciIo);
  Fw.Install(Fw.NewHandle(lower), &controller.PciIo);
  const fake::Data disk = Path(lower).Node(3, 18, {0, 0, 0, 0, 0, 0}).Bytes();
  const auto* path = reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(disk.data());
  PCI_DEVICE_INFO info;
  ASSERT_EQ(GetPciDeviceInfo(path, info), EFI_SUCCESS);
  EXPECT_EQ(info.Bus, 2U);
  EXPECT_EQ(info.Device, 0x1FU);
  EXPECT_EQ(info.Function, 3U);
  EXPECT_EQ(info.VendorId, 0x1137);
  EXPECT_STREQ(info.VendorName, "Veyra");
  EXPECT_STREQ(info.ClassName, "Mass Storage Controller");
  EXPECT_STREQ(info.SubClassName, "SATA");
  EXPECT_STREQ(info.InterfaceName, "AHCI 1.0");
  controller.ConfigFails = true;
  EXPECT_EQ(GetPciDeviceInfo(path, info), EFI_DEVICE_ERROR);
  EXPECT_EQ(info.VendorId, 0) << "nothing of a failed answer is kept";
}

TEST_F(PciInfo, NeedsAPciFunctionAndAGoodPath) {
  PCI_DEVICE_INFO info;
  const fake::Data path = fake::PciRoot().Bytes();
  EXPECT_EQ(GetPciDeviceInfo(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(path.data()), info), EFI_NOT_FOUND);
  EXPECT_EQ(GetPciDeviceInfo(nullptr, info), EFI_INVALID_PARAMETER);
}

}  // namespace
}  // namespace bds
