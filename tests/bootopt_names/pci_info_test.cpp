// What configuration space says, in words.
#include "bootopt/names/pci_info.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/fake_pci.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

using fake::Path;

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
