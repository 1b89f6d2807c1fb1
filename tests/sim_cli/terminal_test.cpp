// Keys at the console: from a text, and from a descriptor as a terminal would deliver them.
#include "sim/cli/terminal.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace sim {
namespace {

std::vector<std::pair<unsigned, unsigned>> Parsed(const std::string& text) {
  std::string error;
  std::vector<std::pair<unsigned, unsigned>> pairs;
  for (const EFI_INPUT_KEY& key : ParseKeys(text, error).value_or(std::deque<EFI_INPUT_KEY>{})) {
    pairs.emplace_back(key.ScanCode, key.UnicodeChar);
  }
  return pairs;
}
using Pairs = std::vector<std::pair<unsigned, unsigned>>;

TEST(ParseKeys, CharactersAndWords) {
  EXPECT_EQ(Parsed("a{down}{enter}"), (Pairs{{0, 'a'}, {2, 0}, {0, '\r'}}));
  EXPECT_EQ(Parsed("\n{{}}\u00FC"), (Pairs{{0, '\r'}, {0, '{'}, {0, '}'}, {0, 0xFC}}));
  EXPECT_EQ(Parsed("{f12}{esc}"), (Pairs{{0x16, 0}, {0x17, 0}}));
}

TEST(ParseKeys, UnknownWordsAreErrors) {
  for (const char* text : {"{nokey}", "a{", "{", "{enter", "\xFF"}) {
    std::string error;
    EXPECT_FALSE(ParseKeys(text, error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

class TypedKeysOnAPipe : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(pipe(ends_), 0); }
  void TearDown() override {
    close(ends_[0]);
    Hang();
  }
  void Type(std::string_view bytes) {
    ASSERT_EQ(write(ends_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void Hang() {
    if (ends_[1] >= 0) {
      close(std::exchange(ends_[1], -1));
    }
  }
  int ends_[2] = {-1, -1};
};

TEST_F(TypedKeysOnAPipe, GivenKeysComeBeforeTypedOnes) {
  TypedKeys keys({{0, u'1'}}, ends_[0]);
  Type("2\x1B[B");
  EXPECT_EQ(keys.Next()->UnicodeChar, u'1');
  EXPECT_EQ(keys.Next()->UnicodeChar, u'2');
  EXPECT_EQ(keys.Next()->ScanCode, kScanDown);
  EXPECT_FALSE(keys.Next());
}

TEST_F(TypedKeysOnAPipe, AnEscapeThatNothingFollowsIsTheEscapeKey) {
  TypedKeys keys({}, ends_[0]);
  Type("\x1B");
  const auto key = keys.Next();
  ASSERT_TRUE(key);
  EXPECT_EQ(key->ScanCode, kScanEsc);
}

TEST_F(TypedKeysOnAPipe, WaitingKeepsTheKeyAndEndsWithTheInput) {
  TypedKeys keys({}, ends_[0]);
  Type("x");
  EXPECT_TRUE(keys.Wait());
  EXPECT_TRUE(keys.Wait());
  EXPECT_EQ(keys.Next()->UnicodeChar, u'x');
  Hang();
  EXPECT_FALSE(keys.Wait());
  EXPECT_FALSE(keys.Next());
}

TEST(TypedKeysAlone, WithoutADescriptorNothingEverComes) {
  TypedKeys keys({{0, u'a'}}, TypedKeys::kNone);
  EXPECT_TRUE(keys.Wait());
  EXPECT_TRUE(keys.Next());
  EXPECT_FALSE(keys.Wait());
  EXPECT_FALSE(keys.Next());
}

}  // namespace
}  // namespace sim
