// What the boot menu shows: prefix, the first body that answers, suffix.
#include <map>

#include "bootopt/names/driver_strings.h"
#include "bootopt/names/network_name.h"
#include "bootopt/names/option_name.h"
#include "platform/load_file.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/fake_pci.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

using fake::Data;
using fake::Path;

class OptionName : public fake::BootListsTest {
 protected:
  void RegisterEnglish() {
    UINT16 id = 1;
    for (const std::string text : kDriverStrings) {
      hii_.Strings[{"en-US", id++}] = std::u16string(text.begin(), text.end());
    }
    Fw.Install(Fw.NewHandle(), static_cast<EFI_HII_STRING_PROTOCOL*>(&hii_));
    gBootOptions.HiiHandle = &hii_;
  }
  std::u16string NameOf(BOOT_OPTION& option) {
    const UINTN length = BuildBootOptionName(option);
    EXPECT_EQ(length, TextLength(option.Description.get()));
    return option.Description.get();
  }
  // The driver of the handle gives it a name.
  void NameHandle(EFI_HANDLE handle, const char16_t* name) {
    const EFI_HANDLE driver = Fw.NewHandle();
    namer_.Names[{handle, nullptr}] = name;
    Fw.Install(driver, static_cast<EFI_COMPONENT_NAME2_PROTOCOL*>(&namer_));
    Fw.OpenByDriver(handle, ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, driver, EFI_OPEN_PROTOCOL_BY_DRIVER);
  }

  fake::Hii hii_;
  fake::Namer2 namer_{"en-US"};
  EFI_LOAD_FILE_PROTOCOL loadFile_{};
  test::FakePci pci_{2, 0};
};

TEST_F(OptionName, WordsOfThePathBetweenPrefixAndPartition) {
  RegisterEnglish();
  struct Case {
    Path DevicePath;
    const char16_t* Name;
  };
  const auto sata = fake::PciRoot().Node(1, 1, {2, 0x1F}).Node(3, 18, {0, 0, 0xFF, 0xFF, 0, 0});
  const Case cases[] = {
      {Path(sata).Node(4, 1, fake::HardDriveBody(1)), u"UEFI: Hard Drive, Partition 1"},
      {fake::PciRoot().Node(3, 5, {1, 0}).Node(4, 1, fake::HardDriveBody(2)), u"UEFI: USB Hard Drive, Partition 2"},
      {fake::PciRoot().Node(3, 1, {0, 0, 0, 0}).Node(4, 2, Data(20, 0)), u"UEFI: ATAPI CD/DVD Drive"},
      {fake::PciRoot().Node(3, 2, {0, 0, 0, 0}), u"UEFI: SCSI"},
      {fake::PciRoot().Node(3, 11, Data(33, 0)), u"UEFI: Network Card"},
      {Path().Node(4, 3,
                   {0x5C, 0xB9, 0x23, 0x50, 0x26, 0xDB, 0x9B, 0x42, 0xA6, 0x48, 0xBD, 0x47, 0x66, 0x4C, 0x80, 0x12}),
       u"UEFI: Built-in EFI Shell"},
      {sata, u"UEFI: Unknown Device"},
      {Path().Node(4, 1, {1, 0, 0, 0}), u"UEFI: Hard Drive"},  // too short to hold a partition
  };
  for (const Case& name : cases) {
    BOOT_OPTION& option = AddOption();
    option.DeviceHandle = Fw.NewHandle(name.DevicePath);
    EXPECT_EQ(NameOf(option), name.Name);
  }
}

TEST_F(OptionName, WithoutStringsTheLiteralsStand) {
  BOOT_OPTION& option = AddOption();
  option.DeviceHandle = Fw.NewHandle(fake::PciRoot().Node(4, 1, fake::HardDriveBody(3)));
  EXPECT_EQ(NameOf(option), u"UEFI: Unknown Device, Partition 3");
  BBS_TABLE entry{};
  BOOT_OPTION& legacy = AddOption();
  legacy.BbsEntry = &entry;
  EXPECT_EQ(NameOf(legacy), u"Unknown Device");
}

TEST_F(OptionName, ALegacyOptionShowsItsDescriptionWithoutTrailingBlanks) {
  BBS_TABLE entry{};
  entry.DescStringSegment = 0xE000;
  Fw.WriteLegacy(0xE0000, std::string("WDC XYZ   \0", 11));
  BOOT_OPTION& option = AddOption();
  option.BbsEntry = &entry;
  EXPECT_EQ(NameOf(option), u"WDC XYZ");
  EXPECT_EQ(NameOf(option), u"WDC XYZ") << "a second name replaces the first";
  Fw.WriteLegacy(0xE0000, std::string("    \0", 5));
  EXPECT_EQ(NameOf(option), u"Unknown Device") << "blanks are no name";
}

TEST_F(OptionName, ADescriptionIsCutByTheRoomOnly) {
  BBS_TABLE entry{};
  entry.DescStringSegment = 0xE000;
  BOOT_OPTION& option = AddOption();
  option.BbsEntry = &entry;
  for (const UINTN length : {UINTN{300}, kNameCapacity - 1, kNameCapacity, UINTN{3000}}) {
    Fw.WriteLegacy(0xE0000, std::string(length, 'd') + '\0');
    const UINTN shown = length < kNameCapacity ? length : kNameCapacity - 1;
    EXPECT_EQ(NameOf(option), std::u16string(shown, u'd')) << length;
  }
}

TEST_F(OptionName, TheControllersNameComesBeforeTheDescription) {
  BBS_TABLE entry{};
  entry.DescStringSegment = 0xE000;
  Fw.WriteLegacy(0xE0000, std::string("WDC XYZ\0", 8));
  BOOT_OPTION& option = AddOption();
  option.BbsEntry = &entry;
  option.DeviceHandle = Fw.NewHandle(fake::PciRoot());
  NameHandle(option.DeviceHandle, u"Port 3 disk  ");
  EXPECT_EQ(NameOf(option), u"Port 3 disk");
}

TEST_F(OptionName, IpEntriesOfANetworkCardCarryVersionAndLocation) {
  const auto nic = fake::PciRoot().Node(1, 1, {1, 3});
  const auto mac = Path(nic).Node(3, 11, Data(33, 0));
  pci_.Bus = 0x1A;
  pci_.Device = 3;
  pci_.Function = 1;
  Fw.Install(Fw.NewHandle(nic), &pci_.PciIo);
  const EFI_HANDLE interface = Fw.NewHandle(mac);
  Fw.Install(interface, &loadFile_);
  NameHandle(interface, u"Intel X520 ");
  const EFI_HANDLE ip4 = Fw.NewHandle(Path(mac).Node(3, 12, Data(23, 0)));
  const EFI_HANDLE ip6 = Fw.NewHandle(Path(mac).Node(3, 13, Data(56, 0)));
  const EFI_HANDLE vlan = Fw.NewHandle(Path(mac).Node(3, 12, Data(23, 0)).Node(3, 20, {1, 0}));
  const EFI_HANDLE plain = Fw.NewHandle(Path(mac).Node(3, 12, Data(23, 0)).Node(4, 4, {'x', 0, 0, 0}));
  const std::pair<EFI_HANDLE, const char16_t*> cases[] = {{interface, u"UEFI: Intel X520"},
                                                          {ip4, u"UEFI: IP4 1a31 Intel X520"},
                                                          {ip6, u"UEFI: IP6 1a31 Intel X520"},
                                                          {vlan, u"UEFI: Intel X520"},
                                                          {plain, u"UEFI: IP4 1a31 Intel X520"}};
  for (const auto& [handle, name] : cases) {
    if (handle != interface) {
      Fw.Install(handle, &loadFile_);
    }
    BOOT_OPTION& option = AddOption();
    option.DeviceHandle = handle;
    EXPECT_EQ(NameOf(option), name);
  }
  namer_.Names.clear();
  BOOT_OPTION& option = AddOption();
  option.DeviceHandle = ip4;
  CHAR16 buffer[64];
  EXPECT_EQ(BuildNetworkName(option, buffer), 0U) << "version and location alone are no name";
}

TEST_F(OptionName, LongNamesAreCutToTheBuffer) {
  RegisterEnglish();
  Path path;
  for (int i = 0; i < 300; ++i) {
    path.Node(3, 5, {1, 0});
  }
  path.Node(4, 1, fake::HardDriveBody(1));
  BOOT_OPTION& option = AddOption();
  option.DeviceHandle = Fw.NewHandle(path);
  const std::u16string name = NameOf(option);
  EXPECT_EQ(name.size(), kNameCapacity - 1);
  EXPECT_EQ(name.substr(0, 13), u"UEFI: USB USB");
}

TEST_F(OptionName, APathThatLiesGivesTheWordsBeforeTheLie) {
  RegisterEnglish();
  EXPECT_EQ(NameOf(AddOption(nullptr, {3, 5, 6, 0, 1, 0, 3, 2, 0, 0})), u"UEFI: USB");
  EXPECT_EQ(NameOf(AddOption(nullptr, {3, 5, 6, 0, 1, 0, 3, 2, 200, 0})), u"UEFI: USB");
  EXPECT_EQ(NameOf(AddOption(nullptr, {5, 1, 4, 0, 0x7F, 0xFF, 4, 0})), u"Unknown Device");
}

}  // namespace
}  // namespace bds
