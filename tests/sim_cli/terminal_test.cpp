// Keys at the console from a text; on_a_terminal.py types them.
#include "sim/cli/terminal.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace sim
