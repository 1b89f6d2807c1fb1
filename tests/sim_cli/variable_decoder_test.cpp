// Variables as text: golden bytes, and bytes that somebody broke.
#include "sim/cli/variable_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "bootopt/legacy_dev_order.h"
#include "osopt/default_order.h"
#include "sim/cli/load_option_text.h"
#include "sim/cli/printable_text.h"

namespace sim {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Bytes = std::vector<std::byte>;

Bytes B(std::initializer_list<unsigned> values) {
  Bytes bytes;
  for (const unsigned value : values) {
    bytes.push_back(static_cast<std::byte>(value));
  }
  return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

std::vector<std::string> Decode(const char16_t* name, const Bytes& data,
                                const EFI_GUID& guid = gEfiGlobalVariableGuid) {
  return DecodeVariable({name, guid, 7, data});
}

// PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)
const Bytes kSataPath = B({0x02, 0x01, 0x0C, 0x00, 0xD0, 0x41, 0x03, 0x0A, 0,    0,    0, 0,  // ACPI
                           0x01, 0x01, 0x06, 0x00, 0x02, 0x1F,                                // PCI
                           0x03, 0x12, 0x0A, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00,        // SATA
                           0x7F, 0xFF, 0x04, 0x00});                                          // end
// Attributes, path length, name "ab" and the path above.
const Bytes kSataOption = B({0x01, 0, 0, 0, 32, 0, 'a', 0, 'b', 0, 0, 0}) + kSataPath;
const Bytes kGroup = B({0, 0, 'G', 'O'});

Bytes Member(const Bytes& image) {
  const auto size = static_cast<unsigned>(8 + image.size());
  return B({0, 0, 'N', 'O', size & 0xFF, size >> 8, 0, 0}) + image;
}

TEST(VariableDecoder, AMemberWhoseLengthLiesIsOptionalData) {
  for (const unsigned length : {0U, 7U, 200U, 0xFFU}) {
    const Bytes data = kSataOption + kGroup + B({0, 0, 'N', 'O', length, 0, 0, 0, 1, 2});
    EXPECT_THAT(Decode(u"Boot0001", data), testing::Contains("optional data, 10 bytes")) << length;
  }
}

TEST(VariableDecoder, GroupsInGroupsEnd) {
  Bytes image = kSataOption;
  for (int depth = 0; depth < 20; ++depth) {
    image = kSataOption + kGroup + Member(image);
  }
  const auto lines = Decode(u"Boot0001", image);
  EXPECT_LT(lines.size(), 60u);
  EXPECT_THAT(lines, testing::Contains(HasSubstr("optional data")));
}

TEST(VariableDecoder, EveryTruncationOfAnOptionIsSaidToBeNone) {
  for (std::size_t size = 0; size < kSataOption.size(); ++size) {
    const Bytes cut(kSataOption.begin(), kSataOption.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_THAT(Decode(u"Boot0001", cut)[0], StartsWith("no load option")) << size;
  }
}

struct SmallCase {
  const char16_t* name;
  Bytes data;
  const char* first;
};

TEST(VariableDecoder, SmallVariables) {
  const SmallCase cases[] = {
      {u"BootOrder", B({1, 0, 0xFE, 0xFF}), "0001 FFFE"},
      {u"BootOrder", {}, "empty"},
      {u"BootOrder", B({1, 0, 2}), "3 bytes, expected a list of 16-bit numbers"},
      {u"BootNext", B({7, 0}), "0007"},
      {u"BootNext", B({7}), "1 bytes, expected a 16-bit number"},
      {u"Timeout", B({3, 0}), "3 s"},
      {u"Timeout", B({0xFF, 0xFF}), "waits without end"},
      {u"Timeout", {}, "0 bytes, expected a 16-bit number of seconds"},
      {u"ConOut", kSataPath, "PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)"},
      {u"ConOut", B({2, 1, 0, 0}), "4 bytes, expected a device path"},
      {u"PlatformLang", B({'e', 'n', 0x1B, 0, 'x'}), "\"en\\x1B\""},
      {u"Anything", B({1, 2}), "2 bytes"},
  };
  for (const SmallCase& each : cases) {
    EXPECT_EQ(Decode(each.name, each.data)[0], each.first);
  }
}

TEST(VariableDecoder, DefaultOrdersAreOnesOfTheirOwnVendors) {
  const Bytes numbers = B({2, 0, 1, 0});
  EXPECT_EQ(Decode(u"DefaultBootOrder", numbers, bds::kDefaultBootOrderGuid)[0], "0002 0001");
  EXPECT_EQ(Decode(u"DefaultBootOrder", numbers)[0], "4 bytes");
  EXPECT_EQ(Decode(u"DefaultLegacyDevOrder", B({3, 0, 0, 0, 4, 0, 7, 0}), bds::kDefaultLegacyDevOrderGuid)[0],
            "CDROM: 7");
}

TEST(VariableDecoder, LegacyRecordsThatLieAreHexadecimal) {
  const Bytes good = B({1, 0, 0, 0, 4, 0, 1, 0});
  for (const Bytes& bad : {B({2}), B({2, 0, 0, 0, 0, 0}), B({2, 0, 0, 0, 1, 0, 0}), B({2, 0, 0, 0, 3, 0, 0}),
                           B({2, 0, 0, 0, 0xFE, 0xFF, 0, 0})}) {
    const auto lines = Decode(u"LegacyDevOrder", good + bad, bds::kLegacyDevOrderGuid);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Floppy: 1");
    EXPECT_THAT(lines[1], HasSubstr(" bytes that are no record"));
  }
}

TEST(VariableDecoder, RandomBytesGiveSomeSafeText) {
  std::mt19937 random(20260101);
  for (int round = 0; round < 3000; ++round) {
    Bytes bytes = round % 2 == 0 ? Bytes{} : kSataOption + kGroup + Member(kSataOption);
    bytes.resize(bytes.size() + random() % 64);
    for (int change = 0; change < 6 && !bytes.empty(); ++change) {
      bytes[random() % bytes.size()] = static_cast<std::byte>(random());
    }
    for (const char16_t* name : {u"Boot0001", u"BootOrder", u"ConIn", u"LegacyDevOrder"}) {
      const bool legacy = name[0] == u'L';
      const auto lines = Decode(name, bytes, legacy ? bds::kLegacyDevOrderGuid : gEfiGlobalVariableGuid);
      ASSERT_FALSE(lines.empty());
      for (const std::string& line : lines) {
        ASSERT_EQ(line.find_first_of("\x1B\n\r\b"), std::string::npos);
      }
    }
  }
}

TEST(PrintableText, NothingActsOnTheTerminal) {
  EXPECT_EQ(PrintableText(u"a\x1B[2J\x7F\x9B\x202E\xD800z"), "a\\x1B[2J\\x7F\\x9B\\u202E\\uD800z");
  EXPECT_EQ(PrintableText(u"Gr\u00FC\u00DFe \U0001F600"), "Gr\u00FC\u00DFe \U0001F600");
  EXPECT_EQ(PrintableText("ok\xC3(\xFF\xE2\x82"), "ok\\xC3(\\xFF\\xE2\\x82");
  EXPECT_EQ(PrintableText("a\nb\r", true), "a\nb\\x0D");
  EXPECT_EQ(PrintableText("a\nb"), "a\\x0Ab");
}

}  // namespace
}  // namespace sim
