// The string package's bytes, and how strings come back from the HII database.
#include "bootopt/names/string_package.h"

#include "bootopt/names/strings.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/name_fakes.h"
#include "tests/support/option_image.h"

namespace bds {
namespace {

TEST(StringPackage, LayoutByHand) {
  using fake::Append;
  using fake::Append32;
  const char* const texts[] = {
      "English", "Built-in EFI Shell", "Removable Drive", "Hard Drive",     "CD/DVD Drive", "PCMCIA Device",
      "USB",     "Network Card",       "BEV Device",      "Unknown Device", "ATAPI",        "SCSI",
      "UEFI: ",  "Partition"};
  fake::Data strings;
  for (const std::string text : texts) {
    strings.push_back(0x14);
    Append(strings, fake::Utf16(std::u16string(text.begin(), text.end())));
    Append(strings, {0, 0});
  }
  strings.push_back(0);
  fake::Data package;
  Append32(package, static_cast<UINT32>(52 + strings.size()) | 0x04000000);
  Append32(package, 52);
  Append32(package, 52);
  Append(package, fake::Data(32, 0));
  Append(package, {1, 0, 'e', 'n', '-', 'U', 'S', 0});
  Append(package, strings);
  fake::Data list = {0x82, 0x8F, 0x4B, 0x8F, 0x91, 0x9B, 0x28, 0x40, 0x86, 0xE6, 0xF4, 0xDB, 0x7D, 0x4C, 0x1D, 0xFF};
  Append32(list, static_cast<UINT32>(20 + package.size() + 4));
  Append(list, package);
  Append32(list, 4 | 0xDF000000);
  const auto bytes = StringPackageList();
  ASSERT_EQ(bytes.size(), list.size());
  EXPECT_EQ(std::memcmp(bytes.data(), list.data(), list.size()), 0);
}

class DriverStrings : public fake::BootListsTest {
 protected:
  std::u16string Get(UINT16 id) {
    const PoolPtr<CHAR16> text = GetDriverString(id);
    return text ? std::u16string(text.get()) : u"(none)";
  }
  fake::Hii hii_;
};

TEST_F(DriverStrings, ComeInThePlatformLanguageElseInEnglish) {
  Fw.Install(Fw.NewHandle(), static_cast<EFI_HII_STRING_PROTOCOL*>(&hii_));
  hii_.Strings = {{{"en-US", 4}, u"Hard Drive"}, {{"en-US", 7}, u"USB"}, {{"de-DE", 4}, u"Festplatte"}};
  EXPECT_EQ(Get(4), u"(none)") << "not registered";
  gBootOptions.HiiHandle = &hii_;
  EXPECT_EQ(Get(4), u"Hard Drive");
  Fw.Put(u"PlatformLang", {'d', 'e', '-', 'D', 'E', 0});
  EXPECT_EQ(Get(4), u"Festplatte");
  EXPECT_EQ(Get(7), u"USB");
  EXPECT_EQ(Get(99), u"(none)");
  Fw.Put(u"PlatformLang", fake::Data(200, 'x'));
  EXPECT_EQ(Get(4), u"Hard Drive") << "a language too long to be one";
  Fw.Put(u"PlatformLang", {'d', 'e', '-', 'D', 'E'});
  EXPECT_EQ(Get(4), u"Festplatte") << "without its NUL";
}

}  // namespace
}  // namespace bds
