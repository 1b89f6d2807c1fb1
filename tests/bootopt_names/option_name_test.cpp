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

  fake::Hii hii_;
  fake::Namer2 namer_{"en-US"};
  EFI_LOAD_FILE_PROTOCOL loadFile_{};
  test::FakePci pci_{2, 0};
};

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
