// Text helpers at their edges.
#include "support/text.h"

#include <gtest/gtest.h>

#include <string_view>

#include "tests/support/firmware.h"

namespace bds {
namespace {

struct NumberCase {
  std::u16string_view Text;
  bool Valid;
  UINT64 Value;
};
constexpr NumberCase kNumbers[] = {
    {u"0", true, 0},
    {u"42", true, 42},
    {u"0x2A", true, 42},
    {u"0X2a", true, 42},
    {u"18446744073709551615", true, ~UINT64{0}},
    {u"18446744073709551616", false, 0},
    {u"0xFFFFFFFFFFFFFFFF", true, ~UINT64{0}},
    {u"0x10000000000000000", false, 0},
    {u"", false, 0},
    {u"0x", false, 0},
    {u"-1", false, 0},
    {u" 1", false, 0},
    {u"1 ", false, 0},
    {u"12a", false, 0},
    {u"0xg", false, 0},
    {std::u16string_view(u"7\0x", 3), true, 7},
};

TEST(Text, ParseNumberTakesAllOfTheTextOrNothing) {
  for (const NumberCase& number : kNumbers) {
    UINT64 value = 0;
    const std::span text(number.Text.data(), number.Text.size());
    EXPECT_EQ(ParseNumber(text, value), number.Valid) << std::string(number.Text.begin(), number.Text.end());
    EXPECT_EQ(value, number.Value);
  }
}

TEST(Text, LengthCompareAndTrim) {
  EXPECT_EQ(TextLength(static_cast<const char*>(nullptr)), 0U);
  EXPECT_EQ(TextLength(u"abc"), 3U);
  EXPECT_TRUE(TextEqual("ab", "ab"));
  EXPECT_FALSE(TextEqual("ab", "abc"));
  EXPECT_FALSE(TextEqual(u"ab", u"aB"));
  EXPECT_EQ(TrimmedLength("ab  ", 4), 2U);
  EXPECT_EQ(TrimmedLength("    ", 4), 0U);
  EXPECT_EQ(HexDigitValue('f'), 15);
  EXPECT_EQ(HexDigitValue(u'G'), -1);
}

TEST(Text, CopiesOwnTheirMemory) {
  fake::Firmware firmware;
  const PoolPtr<CHAR16> copy = CopyText(u"wide", 2);
  EXPECT_TRUE(TextEqual<CHAR16>(copy.get(), u"wi"));
  const PoolPtr<char> narrow = NarrowText(u"a\u0142", 2);
  EXPECT_STREQ(narrow.get(), "aB") << "the low byte of each character";
}

}  // namespace
}  // namespace bds
