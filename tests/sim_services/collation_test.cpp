// Case-insensitive patterns.
#include "sim/firmware/services/collation.h"

#include <gtest/gtest.h>

#include <string>

namespace sim {
namespace {

TEST(MatchesPattern, FollowsTheStandardsWildcards) {
  struct Case {
    const char16_t* text;
    const char16_t* pattern;
    bool matches;
  };
  const Case cases[] = {
      {u"", u"", true},
      {u"", u"*", true},
      {u"", u"?", false},
      {u"a", u"", false},
      {u"abc", u"ABC", true},
      {u"abc", u"a?c", true},
      {u"abc", u"a*", true},
      {u"abc", u"*c", true},
      {u"abc", u"*b", false},
      {u"abc", u"a*b*c*", true},
      {u"abcbc", u"a*bc", true},
      {u"aab", u"*ab", true},
      {u"b", u"[abc]", true},
      {u"d", u"[abc]", false},
      {u"m", u"[a-z]", true},
      {u"M", u"[a-z]", true},
      {u"5", u"[a-z]", false},
      {u"5", u"[0-9a-f]", true},
      {u"-", u"[a-]", true},
      {u"a", u"[a", false},
      {u"a", u"[]", false},
      {u"ab", u"[a-c][a-c]", true},
      {u"***", u"***", true},
      {u"ab", u"a", false},
      {u"Boot0A1f", u"boot[0-9a-f][0-9a-f][0-9a-f][0-9a-f]", true},
      {u"BootOrder", u"boot[0-9a-f][0-9a-f][0-9a-f][0-9a-f]", false},
      {u"Boot00G1", u"boot[0-9a-f][0-9a-f][0-9a-f][0-9a-f]", false},
      {u"\u00E4", u"\u00C4", true},
      {u"\u00F7", u"\u00D7", false},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(MatchesPattern(test.text, test.pattern), test.matches)
        << std::string(std::u16string_view(test.text).begin(), std::u16string_view(test.text).end()) << " against "
        << std::string(std::u16string_view(test.pattern).begin(), std::u16string_view(test.pattern).end());
  }
}

TEST(MatchesPattern, ManyStarsStayFast) {
  const std::u16string text(2000, u'a');
  std::u16string pattern;
  for (int i = 0; i < 200; ++i) {
    pattern += u"*a";
  }
  EXPECT_FALSE(MatchesPattern(text, pattern + u"b"));
  EXPECT_TRUE(MatchesPattern(text, pattern));
}

}  // namespace
}  // namespace sim
