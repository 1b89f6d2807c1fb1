// The formatter: every conversion with its flags, widths and the values at its edges.
#include "support/format.h"

#include <gtest/gtest.h>

#include <string>

#include "support/debug_print.h"
#include "tests/support/firmware.h"

namespace bds {
namespace {

template <typename... Args>
std::string Formatted(FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  char buffer[400];
  const UINTN length = FormatAscii(buffer, format, args...);
  EXPECT_EQ(length, std::char_traits<char>::length(buffer));
  return buffer;
}

TEST(Format, NumbersKeepSignWidthAndTheirOwnSize) {
  EXPECT_EQ(Formatted("%d|%d|%d", 0, -1, INT32{-2147483648}), "0|-1|-2147483648");
  EXPECT_EQ(Formatted("%d", ~UINT64{0}), "18446744073709551615");
  EXPECT_EQ(Formatted("%d", INT64{-9223372036854775807 - 1}), "-9223372036854775808");
  EXPECT_EQ(Formatted("%x|%X", UINT32{0xABCDEF}, UINT32{0xABCDEF}), "abcdef|ABCDEF");
  // A negative number shows as many digits as its type has bytes.
  EXPECT_EQ(Formatted("%x|%x|%x", INT8{-1}, INT16{-1}, INT32{-1}), "ff|ffff|ffffffff");
  EXPECT_EQ(Formatted("%ld|%lx", UINT64{5}, UINT64{0x100000000}), "5|100000000");
}

TEST(Format, WidthsAndFlags) {
  EXPECT_EQ(Formatted("[%4d][%04d][%-4d]", 42, 42, 42), "[  42][0042][42  ]");
  EXPECT_EQ(Formatted("[%04d][%5d]", -42, -42), "[-042][  -42]");
  EXPECT_EQ(Formatted("[%-04d]", 7), "[7   ]");
  EXPECT_EQ(Formatted("%04X", UINT16{0x12345 & 0xFFFF}), "2345");
  EXPECT_EQ(Formatted("%02x", 0x123), "123") << "a width cuts nothing";
  EXPECT_EQ(Formatted("%0x", 0), "0");
}

TEST(Format, TextsOfBothKindsUnderEveryLetter) {
  EXPECT_EQ(Formatted("%a|%s|%S", "one", "two", "three"), "one|two|three");
  EXPECT_EQ(Formatted("%a|%s|%S", u"one", u"two", u"three"), "one|two|three");
  EXPECT_EQ(Formatted("[%6a][%-6a][%.2a]", "abc", u"abc", "abc"), "[   abc][abc   ][ab]");
  EXPECT_EQ(Formatted("%a", static_cast<const char*>(nullptr)), "<null>");
  EXPECT_EQ(Formatted("%S", u"\u00E9\u4E2D"), "??") << "the log is ASCII";
  EXPECT_EQ(Formatted("%c%c", 'a', u'b'), "ab");
}

TEST(Format, StatusGuidPointerAndPercent) {
  constexpr EFI_GUID guid{0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 0x8F}};
  EXPECT_EQ(Formatted("%r|%r", EFI_NOT_FOUND, EFI_SUCCESS), "EFI_NOT_FOUND|EFI_SUCCESS");
  EXPECT_EQ(Formatted("%r", EfiErrorBit | 0x7F), "800000000000007F") << "a status without a name is a number";
  EXPECT_EQ(Formatted("%g", &guid), "12345678-9ABC-DEF0-0102-03040506078F");
  EXPECT_EQ(Formatted("%g", static_cast<const EFI_GUID*>(nullptr)), "<null>");
  EXPECT_EQ(Formatted("%x %X", reinterpret_cast<void*>(0xBEEF), nullptr), "beef 0");
  EXPECT_EQ(Formatted("100%%"), "100%");
}

TEST(Format, CutsToTheBufferAndAlwaysTerminates) {
  char buffer[5] = {'#', '#', '#', '#', '#'};
  EXPECT_EQ(FormatAscii(std::span(buffer, 4), "%a", "abcdef"), 3U);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(buffer[4], '#');
  EXPECT_EQ(FormatAscii(std::span(buffer, 1), "%d", 12), 0U);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(FormatAscii({}, "%d", 12), 0U);
  CHAR16 wide[4];
  EXPECT_EQ(FormatUtf16(wide, "%a", "wxyz"), 3U);
  EXPECT_EQ(std::u16string(wide), u"wxy");
}

TEST(DebugPrint, MaskDecidesAndTheDriversOwnMessagesNeedAnyBit) {
  fake::Firmware firmware;
  gDebug.Mask = DEBUG_DEFAULT_MASK;
  DebugPrintAt(DEBUG_LEVEL_STEP, "hidden");
  DebugPrint("shown");
  gDebug.Mask = 0;
  DebugPrint("silent");
  EXPECT_EQ(firmware.Log(), "shown");
}

TEST(DebugPrint, LongTextsLoseNothingInTheirPieces) {
  fake::Firmware firmware;
  for (const UINTN length : {0, 1, 99, 100, 119, 120, 199, 200, 201, 1000}) {
    std::string text;
    for (UINTN i = 0; i < length; ++i) {
      text += static_cast<char>('a' + i % 26);
    }
    firmware.TakeLog();
    DebugPrintText(text.c_str());
    EXPECT_EQ(firmware.Log(), text) << length;
  }
}

TEST(DebugPrint, HexDumpShowsTheLastShortLine) {
  fake::Firmware firmware;
  const std::byte bytes[17] = {std::byte{'A'}, std::byte{0x1F}, std::byte{0xFF}};
  DebugHexDump(bytes);
  EXPECT_EQ(firmware.Log().substr(0, 22), "00000000: 41 1f ff 00 ");
  EXPECT_NE(firmware.Log().find("A.............."), std::string::npos);
  EXPECT_NE(firmware.Log().find("\n00000010: 00 "), std::string::npos);
}

}  // namespace
}  // namespace bds
