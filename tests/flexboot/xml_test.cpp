// The tokenizer on tables of texts, and on texts that nobody would write.
#include "flexboot/xml_cursor.h"

#include <random>

#include "tests/flexboot/policy_text.h"
#include "tests/support/driver_fixture.h"

namespace test {
namespace {

class Xml : public DriverTest {};

std::string StatusText(EFI_STATUS status) {
  return status == EFI_DEVICE_ERROR ? "end" : status == EFI_UNSUPPORTED ? "no XML" : fmt::format("{:x}", status);
}

// All tokens of the text as "name=value" lines, and how the walk ended. The text lies in memory of its exact size.
std::string Tokens(std::string_view text, bool fromRoot = false) {
  const std::vector<char> exact(text.begin(), text.end());
  bds::XML_CURSOR cursor = bds::StartXml(exact.data(), exact.size());
  char name[bds::kXmlTextSize];
  char value[bds::kXmlTextSize];
  std::string found;
  for (std::size_t count = 0;; ++count) {
    EXPECT_LE(count, text.size()) << "more tokens than characters";
    const EFI_STATUS status =
        fromRoot && count == 0 ? bds::GetFirstToken(cursor, name, value) : bds::GetNextToken(cursor, name, value);
    EXPECT_LE(cursor.Offset, text.size());
    if (EFI_ERROR(status) || count > text.size()) {
      return found + StatusText(status);
    }
    EXPECT_LT(std::strlen(name), sizeof(name));
    EXPECT_LT(std::strlen(value), sizeof(value));
    found += fmt::format("{}={}|", name, value);
  }
}

TEST_F(Xml, TokensOfTexts) {
  const std::string of79(79, 'v');
  const std::string name79 = "<" + std::string(78, 'n');
  const struct {
    const char* about;
    std::string text;
    std::string tokens;
  } cases[] = {
      {"nothing", "", "end"},
      {"no tag", " text ", "end"},
      {"no blank before the slash", "<PciVid value=\"1000\"/> ", "<PciVid=1000|end"},
      {"a blank before the slash", "<PciVid value=\"1000\" /> ", "<PciVid=1000|end"},
      {"groups", "<A>text</A> ", "<A=GroupToken|</A=GroupToken|end"},
      {"empty element", "<Shell /> ", "<Shell=NoValue|end"},
      {"the slash joins the name", "<Shell/> ", "<Shell/=GroupToken|end"},
      {"a line break is no end of a name", "<A\nvalue=\"1\"> <B> ", "<A\nvalue=\"1\"=GroupToken|<B=GroupToken|end"},
      {"any attribute, blanks around it", "<A  x =  \"1\" y=\"2\" />\r\n<B> ", "<A=1|<B=GroupToken|end"},
      {"no quotes take the next ones", "<A value=1 /><B value=\"2\" /> ", "<A=2|end"},
      {"empty value", "<A value=\"\" /> ", "<A=|end"},
      {"79 characters are a value", "<A v=\"" + of79 + "\" /> ", "<A=" + of79 + "|end"},
      {"80 are none", "<A v=\"" + of79 + "v\" /> ", "<A=NoValue|end"},
      {"a name of 79 with its value", name79 + " v=\"1\" /> ", name79 + "=1|end"},
      {"a name of 80 is cut and a group", name79 + "n v=\"1\" /> ", name79 + "=GroupToken|end"},
      {"the last character is never there", "<A></A>", "<A=GroupToken|end"},
      {"a quote that ends the text", "<A v=\"1\"", "end"},
      {"a comment is a tag", "<!-- <A v=\"1\" /> --> ", "<!--=1|end"},
      {"bytes above 0x7F", "<\x80\xFF v=\"\xC3\xA4\" /> ", "<\x80\xFF=\xC3\xA4|end"},
      {"a NUL ends it", std::string("<A> \0 <B> ", 10), "<A=GroupToken|end"},
      {"100 blanks", "<A" + std::string(100, ' ') + "v=\"1\" />" + std::string(200, ' ') + "<B> ",
       "<A=1|<B=GroupToken|end"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Tokens(row.text), row.tokens) << row.about;
  }
}

TEST_F(Xml, TheFirstTokenIsTheRootsFirstChild) {
  EXPECT_EQ(Tokens(" \n<?xml version='1.0'?>\n<Root a=\"1\">\n<Head>\n<V v=\"2\" />\n", true),
            "<Head=GroupToken|<V=2|end");
  EXPECT_EQ(Tokens("<?xml?><Root><Shell /> <A v=\"1\" /> ", true), "<Shell=1|end") << "a slash is not looked for";
  EXPECT_EQ(Tokens("<Root><Head> ", true), "no XML");
  EXPECT_EQ(Tokens("<?xml?><Root> ", true), "end");
  EXPECT_TRUE(Logged("GetFirstToken:Invalid XML detected\n"));
  EXPECT_TRUE(Logged("xmlFindNonWhiteSpace:Reached End of XML II\nGetFirstToken:Reached End of XML\n"));
}

TEST_F(Xml, EveryTextEnds) {
  const std::string policy = Policy(PolicyTarget("LAN", "<PciVid value=\"1137\" /><Shell />"));
  std::mt19937 random(8);
  constexpr char kLikely[] = "<>/=\" \n?A\0";
  for (std::size_t length = 0; length <= policy.size(); ++length) {
    Tokens(policy.substr(0, length), true);
    std::string changed = policy;
    for (int i = 0; i < 4; ++i) changed[random() % changed.size()] = kLikely[random() % sizeof(kLikely)];
    Tokens(changed, true);
    Tokens(changed);
  }
}

TEST_F(Xml, SingleCharacters) {
  bds::XML_CURSOR cursor = bds::StartXml("a\t", 2);
  EXPECT_EQ(bds::xmlGetNextChar(cursor), 'a');
  EXPECT_EQ(bds::xmlFindNonWhiteSpace(cursor), 0);
  EXPECT_EQ(bds::xmlGetNextChar(cursor), 0);
  EXPECT_EQ(bds::xmlFindNonWhiteSpace(cursor), 0);
  EXPECT_EQ(Log(),
            "xmlFindNonWhiteSpace:Reached End of XML II\nxmlGetNextChar:Reached End of XML\n"
            "xmlFindNonWhiteSpace:Reached End of XML I\n");
  const std::string blanks(81, ' ');
  cursor = bds::StartXml(blanks.data(), blanks.size());
  EXPECT_EQ(bds::xmlFindNonWhiteSpace(cursor), ' ') << "the 80th blank in a row";
  EXPECT_EQ(cursor.Offset, 80U);
}

TEST_F(Xml, Numbers) {
  const struct {
    const char* text;
    UINT32 base;
    INT32 number;
    const char* rest;
  } cases[] = {
      {"1f", 16, 31, ""},
      {"0x1f", 16, 0, "x1f"},
      {" \t-12 ", 10, -12, " "},
      {"+7", 10, 7, ""},
      {"2147483647", 10, 0x7FFFFFFF, ""},
      {"2147483648", 10, 0x7FFFFFFF, ""},
      {"-2147483648", 10, -0x7FFFFFFF - 1, ""},
      {"-99999999999999999999999", 10, -0x7FFFFFFF - 1, ""},
      {"ffffffffffffffffffffffff", 16, 0x7FFFFFFF, ""},
      {"0x1F", 0, 31, ""},
      {"0X1g", 0, 1, "g"},
      {"010", 0, 8, ""},
      {"08", 0, 0, "8"},
      {"10", 0, 10, ""},
      {"0", 0, 0, ""},
      {"", 0, 0, ""},
      {"zz", 36, 35 * 36 + 35, ""},
  };
  for (const auto& row : cases) {
    const char* end = nullptr;
    EXPECT_EQ(bds::XmlStrToInt(row.text, &end, row.base), row.number) << row.text;
    EXPECT_STREQ(end, row.rest) << row.text;
  }
}

TEST_F(Xml, CompareFoldsLettersOnly) {
  const char* same = "x";
  EXPECT_EQ(bds::XmlStriCmp("<flexboottarget", "<FlexBootTarget"), 0);
  EXPECT_EQ(bds::XmlStriCmp("a", "B"), 'A' - 'B');
  EXPECT_EQ(bds::XmlStriCmp("A", "AB"), -'B');
  EXPECT_NE(bds::XmlStriCmp("[", "{"), 0);
  EXPECT_GT(bds::XmlStriCmp("\xFF", "a"), 0);
  EXPECT_EQ(bds::XmlStriCmp(same, same), 0);
  EXPECT_EQ(bds::XmlStriCmp(nullptr, nullptr), 0);
  EXPECT_EQ(bds::XmlStriCmp(nullptr, same), -1);
  EXPECT_EQ(bds::XmlStriCmp(same, nullptr), 1);
}

}  // namespace
}  // namespace test
