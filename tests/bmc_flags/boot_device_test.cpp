// Which option a boot request means, and what it does to the others.
#include "bmc/ipmi_boot_device.h"

#include "tests/bmc_flags/option_server.h"

namespace test {
namespace {

class BootDevice : public OptionServer {
 protected:
  void AddAll() {
    bds::BOOT_OPTION& header = AddLegacy(u"header", 2);
    header.GroupHeader = TRUE;
    header.BbsEntry = nullptr;
    AddLegacy(u"usb stick", 2, true);
    AddLegacy(u"disk 1", 2);
    AddLegacy(u"disk 2", 2);
    AddLegacy(u"dvd", 3);
    AddLegacy(u"nic", 6);
    AddLegacy(u"fdd", 1);
    Add(u"uefi usb disk", Join({Pci(), Usb(), Disk()}));
    Add(u"uefi loader", Join({Disk(), Loader()}));
    Add(u"uefi usb dvd", Join({Pci(), Usb(), Cdrom()}));
    Add(u"uefi dvd", Join({Pci(), Cdrom()}));
    Add(u"uefi mac", Join({Pci(), Mac()}));
    Add(u"uefi pxe", Join({Pci(), Mac(), Ipv4()}));
    Add(u"uefi usb", Join({Pci(), Usb()}));
    Add(u"uefi fdd", Join({Acpi(0x060441D0), Pci()}));
    Add(u"short acpi", Node(2, 1, {0xD0, 0x41, 0x04, 0x06}));
    Add(u"empty", {});
  }
};

TEST_F(BootDevice, EachKindOfRequestFindsItsOption) {
  const struct {
    const char* what;
    bool efi;
    UINT16 bbs;
    UINT16 type;
    UINT16 subType;
    UINT8 instance;
    const char* front;
  } cases[] = {
      {"legacy disk", false, 2, 4, 1, 0, "usb stick=0 disk 1=1 disk 2=2"},
      {"legacy dvd", false, 3, 4, 2, 0, "dvd=0"},
      {"legacy floppy", false, 1, 2, 1, 0, "fdd=0"},
      {"legacy embedded network", false, 6, 0, 0, 0, "nic=0"},
      {"no such legacy type", false, 0x80, 3, 11, 0, ""},
      {"uefi disk", true, 2, 4, 1, 0, "uefi loader=0"},
      {"uefi disk 0", true, 2, 4, 1, 0x10, "uefi loader=0"},
      {"uefi disk 1", true, 2, 4, 1, 0x11, "uefi usb disk=0"},
      {"uefi disk beyond all", true, 2, 4, 1, 0x1F, "uefi loader=0"},
      {"a number that is not given", true, 2, 4, 1, 0x01, "uefi loader=0"},
      {"uefi dvd", true, 3, 4, 2, 0, "uefi dvd=0"},
      {"uefi dvd 1", true, 3, 4, 2, 0x11, "uefi usb dvd=0"},
      {"uefi network", true, 0x80, 3, 11, 0, "uefi pxe=0"},
      {"uefi network 1", true, 0x80, 3, 11, 0x11, "uefi pxe=0"},
      {"uefi floppy", true, 1, 2, 1, 0, "uefi fdd=0"},
      {"uefi floppy 1", true, 1, 2, 1, 0x11, "uefi usb=0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    NextBoot();
    nextNumber = 1;
    AddAll();
    bds::gBmc.IpmiEfiBoot = c.efi;
    bds::gBmc.IpmiDeviceInstance = c.instance;
    const EFI_STATUS status = bds::ApplyIpmiBootDevice(c.bbs, c.type, c.subType);
    EXPECT_EQ(status, c.front[0] == 0 ? EFI_NOT_FOUND : EFI_SUCCESS);
    EXPECT_EQ(Front(), c.front);
  }
}

TEST_F(BootDevice, ALegacyRequestOrdersItsTypeAndSetsTheOthersBehind) {
  AddLegacy(u"disk", 2);
  AddLegacy(u"dvd", 3);
  AddLegacy(u"disk 2", 2);
  Add(u"uefi", Disk());
  ASSERT_EQ(bds::ApplyIpmiBootDevice(2, 4, 1), EFI_SUCCESS);
  const std::uint32_t expected[][2] = {{0, 1}, {256, 0x50002}, {1, 1}, {512, 0x50004}};
  std::size_t at = 0;
  for (const bds::BOOT_OPTION* option = bds::BootOptionList.First; option != nullptr; option = option->Next, ++at) {
    EXPECT_EQ(option->Priority, expected[at][0]) << at;
    EXPECT_EQ(option->Tag, expected[at][1]) << at;
  }
  EXPECT_TRUE(Logged("IPMI boot of device type 2 \n"));
}

TEST_F(BootDevice, AnOptionWithoutItsEntryIsACandidateNotOnUsb) {
  AddLegacy(u"stick", 2, true);
  AddLegacy(u"orphan", 2).BbsEntry = nullptr;
  ASSERT_EQ(bds::ApplyIpmiBootDevice(2, 4, 1), EFI_SUCCESS);
  EXPECT_EQ(Front(), "stick=0 orphan=1");
  NextBoot();
  AddLegacy(u"dvd", 3);
  AddLegacy(u"orphan", 2).BbsEntry = nullptr;
  ASSERT_EQ(bds::ApplyIpmiBootDevice(2, 4, 1), EFI_SUCCESS);
  EXPECT_EQ(Front(), "orphan=0");
}

TEST_F(BootDevice, TheSecondOfThreeUsbDevicesIsNumberTwoBehindTheOneOther) {
  bds::gBmc.IpmiEfiBoot = TRUE;
  bds::gBmc.IpmiDeviceInstance = 0x12;
  Add(u"usb 1", Join({Usb(), Cdrom()}));
  Add(u"usb 2", Join({Usb(), Cdrom()}));
  Add(u"sata", Join({Pci(), Cdrom()}));
  Add(u"usb 3", Join({Usb(), Cdrom()}));
  ASSERT_EQ(bds::ApplyIpmiBootDevice(3, 4, 2), EFI_SUCCESS);
  EXPECT_EQ(Front(), "usb 2=0");
}

TEST_F(BootDevice, AMatchedLegacyDeviceIsNoUefiCandidate) {
  bds::gBmc.IpmiEfiBoot = TRUE;
  Add(u"index", Join({Pci(), Disk()})).BbsIndex = 3;
  EXPECT_EQ(bds::ApplyIpmiBootDevice(2, 4, 1), EFI_NOT_FOUND);
}

}  // namespace
}  // namespace test
