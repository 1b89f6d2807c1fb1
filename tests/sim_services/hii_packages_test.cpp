// HII package lists: what every string block means, and that no lie in a length gets through.
#include "sim/firmware/services/hii_packages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace sim {
namespace {

using Block = std::vector<std::uint8_t>;

void Append(Block& out, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}
Block StringPackage(const Block& blocks, const std::string& language = "en-US") {
  const std::size_t header = 46 + language.size() + 1;
  Block out;
  Append(out, (header + blocks.size()) | (0x04u << 24), 4);
  Append(out, header, 4);
  Append(out, header, 4);
  out.resize(out.size() + 32);
  Append(out, 1, 2);
  out.insert(out.end(), language.begin(), language.end());
  out.push_back(0);
  out.insert(out.end(), blocks.begin(), blocks.end());
  return out;
}
Block List(const std::vector<Block>& packages) {
  Block out(16, 0x11);
  out.resize(20);
  for (const Block& package : packages) {
    out.insert(out.end(), package.begin(), package.end());
  }
  Append(out, 4 | (0xDFu << 24), 4);
  const auto size = static_cast<std::uint32_t>(out.size());
  std::memcpy(out.data() + 16, &size, 4);
  return out;
}
std::optional<HiiPackageList> Read(const Block& list, HiiError& error) {
  return ReadHiiPackageList(std::as_bytes(std::span(list)), error);
}

TEST(HiiPackageList, EveryBlockKindCountsItsIdentifiers) {
  HiiError error;
  const auto list = Read(List({StringPackage({0x14, 'A',  0,   0,   0,                               // 1
                                              0x16, 2,    0,   'B', 0,    0,    0,    0,   0,        // 2, 3 (empty)
                                              0x22, 2,                                               // 4, 5 skipped
                                              0x21, 0,    1,                                         // 6 to 261 skipped
                                              0x10, 'c',  'd', 0,                                    // 262
                                              0x12, 1,    0,   'e', 0,                               // 263
                                              0x20, 2,    0,                                         // 264 is 2 again
                                              0x30, 0x99, 4,   0,   0x31, 0x40, 5,    0,   0,        // extensions
                                              0x32, 0x99, 6,   0,   0,    0,    0x14, 'F', 0, 0, 0,  // 265
                                              0x00})}),
                         error);
  ASSERT_TRUE(list) << error.text;
  ASSERT_EQ(list->strings.size(), 1u);
  const std::map<std::uint16_t, std::u16string> expected{{1, u"A"},   {2, u"B"},   {3, u""},   {262, u"cd"},
                                                         {263, u"e"}, {264, u"B"}, {265, u"F"}};
  EXPECT_EQ(list->strings[0].strings, expected);
  EXPECT_EQ(list->strings[0].language, "en-US");
  EXPECT_EQ(list->strings[0].nextId, 266);
}

TEST(HiiPackageList, BadBlocksAreNamed) {
  struct Case {
    const char* what;
    Block blocks;
    const char* message;
    EFI_STATUS status = EFI_INVALID_PARAMETER;
  };
  const Case cases[] = {
      {"nothing", {}, "no end block"},
      {"no end block", {0x14, 'A', 0, 0, 0}, "no end block"},
      {"string without end", {0x14, 'A', 0, 'B'}, "no end"},
      {"narrow string without end", {0x10, 'A'}, "no end"},
      {"count cut", {0x16, 1}, "count"},
      {"count lies", {0x16, 3, 0, 0, 0, 0, 0}, "no end"},
      {"duplicate cut", {0x20, 1}, "cut short"},
      {"duplicate of nothing", {0x20, 1, 0, 0}, "does not come before"},
      {"skip cut", {0x21, 1}, "cut short"},
      {"too many identifiers", {0x21, 0xFF, 0xFF, 0x22, 1, 0}, "65535"},
      {"string behind the last identifier", {0x21, 0xFF, 0xFF, 0x14, 0, 0, 0}, "65535"},
      {"extension of nothing", {0x30, 0x99, 0, 0}, "extension"},
      {"extension too long", {0x32, 0x99, 0xFF, 0xFF, 0xFF, 0xFF, 0}, "extension"},
      {"unknown block", {0x55, 0}, "unknown type"},
      {"font", {0x15, 0, 'A', 0, 0, 0, 0}, "font", EFI_UNSUPPORTED},
      {"compressed", {0x10, 0xE4, 0, 0}, "ASCII", EFI_UNSUPPORTED},
  };
  for (const Case& test : cases) {
    HiiError error;
    EXPECT_FALSE(Read(List({StringPackage(test.blocks)}), error)) << test.what;
    EXPECT_NE(error.text.find(test.message), std::string::npos) << test.what << ": " << error.text;
    EXPECT_EQ(error.status, test.status) << test.what;
  }
}

TEST(HiiPackageList, DuplicatesCannotFillTheMemory) {
  Block blocks{0x14};
  for (int i = 0; i < 100'000; ++i) {
    Append(blocks, 'A', 2);
  }
  Append(blocks, 0, 2);
  for (int i = 0; i < 60'000; ++i) {
    Append(blocks, 0x20 | (1 << 8), 3);
  }
  blocks.push_back(0);
  HiiError error;
  EXPECT_FALSE(Read(List({StringPackage(blocks)}), error));
  EXPECT_NE(error.text.find("too long"), std::string::npos) << error.text;
}

TEST(HiiPackageList, TruncatedAtEveryByteItIsRefused) {
  const Block whole = List({StringPackage({0x14, 'A', 0, 0, 0, 0x00}), {8, 0, 0, 0x02, 1, 2, 3, 4}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Block cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    HiiError error;
    ASSERT_FALSE(Read(cut, error)) << size;
    if (size >= 20) {
      // The same with a length that fits, so that the packages themselves are walked.
      const auto length = static_cast<std::uint32_t>(size);
      std::memcpy(cut.data() + 16, &length, 4);
      ASSERT_FALSE(Read(cut, error)) << size;
    }
  }
}

TEST(HiiPackageList, LyingHeadersAreRefused) {
  struct Case {
    std::size_t offset;
    std::uint32_t value;
  };
  constexpr std::size_t kPackage = 20;
  const Case cases[] = {{16, 0},
                        {16, 19},
                        {16, 0xFFFFFFFF},
                        {kPackage, 0x04000000},
                        {kPackage, 0x04000003},
                        {kPackage, 0x04FFFFFF},
                        {kPackage + 4, 0},
                        {kPackage + 4, 46},
                        {kPackage + 4, 51},
                        {kPackage + 4, ~0u},
                        {kPackage + 8, 0},
                        {kPackage + 8, ~0u}};
  for (const Case& test : cases) {
    Block list = List({StringPackage({0x14, 'A', 0, 0, 0, 0x00})});
    std::memcpy(list.data() + test.offset, &test.value, 4);
    HiiError error;
    EXPECT_FALSE(Read(list, error)) << test.offset << " " << test.value;
  }
}

TEST(HiiPackageList, RandomDamageStaysInBounds) {
  const Block whole = List({StringPackage({0x16, 3, 0, 'A', 0, 0, 0, 'B', 0, 0, 0, 0, 0, 0x20, 1, 0, 0x00})});
  std::mt19937 random(4);
  int accepted = 0;
  for (int round = 0; round < 20000; ++round) {
    Block list = whole;
    list[16 + random() % (list.size() - 16)] = static_cast<std::uint8_t>(random());
    HiiError error;
    const bool taken = Read(list, error).has_value();
    EXPECT_EQ(taken, error.text.empty()) << error.text;
    accepted += taken ? 1 : 0;
  }
  EXPECT_GT(accepted, 100);
}

}  // namespace
}  // namespace sim
