// Comparison and matching; the matcher remembers only its last '*', so that no pattern makes it explode.
#include "sim/firmware/services/collation.h"

#include <optional>

namespace sim {
namespace {

bool IsLatin1Upper(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7); }

struct SetMatch {
  bool matches = false;
  std::size_t length = 0;  // of the set with its brackets
};

// The set at the pattern's front against one character; nothing when it is not closed.
std::optional<SetMatch> MatchSet(std::u16string_view pattern, char16_t character) {
  SetMatch result;
  std::size_t at = 1;
  for (; at < pattern.size() && pattern[at] != u']'; ++at) {
    char16_t first = FoldUpper(pattern[at]);
    char16_t last = first;
    if (at + 2 < pattern.size() && pattern[at + 1] == u'-' && pattern[at + 2] != u']') {
      last = FoldUpper(pattern[at + 2]);
      at += 2;
    }
    result.matches = result.matches || (character >= first && character <= last);
  }
  if (at >= pattern.size()) {
    return std::nullopt;
  }
  result.length = at + 1;
  return result;
}

// How many pattern characters one text character uses up; 0 when it does not match.
std::size_t MatchOne(std::u16string_view pattern, char16_t character) {
  if (pattern.empty()) {
    return 0;
  }
  character = FoldUpper(character);
  if (pattern.front() == u'?') {
    return 1;
  }
  if (pattern.front() == u'[') {
    const auto set = MatchSet(pattern, character);
    return set && set->matches ? set->length : 0;
  }
  return FoldUpper(pattern.front()) == character ? 1 : 0;
}

}  // namespace

char16_t FoldLower(char16_t character) {
  return IsLatin1Upper(character) ? static_cast<char16_t>(character + 0x20) : character;
}
char16_t FoldUpper(char16_t character) {
  const bool lower = (character >= u'a' && character <= u'z') || (character >= 0xE0 && character <= 0xFE);
  return lower && character != 0xF7 ? static_cast<char16_t>(character - 0x20) : character;
}

std::int64_t CompareIgnoringCase(std::u16string_view left, std::u16string_view right) {
  for (std::size_t i = 0; i < left.size() && i < right.size(); ++i) {
    const int difference = FoldUpper(left[i]) - FoldUpper(right[i]);
    if (difference != 0) {
      return difference;
    }
  }
  return left.size() < right.size() ? -1 : left.size() > right.size() ? 1 : 0;
}

bool MatchesPattern(std::u16string_view text, std::u16string_view pattern) {
  std::size_t at = 0;
  std::size_t patternAt = 0;
  std::optional<std::size_t> star;
  std::size_t starText = 0;
  while (at < text.size()) {
    if (patternAt < pattern.size() && pattern[patternAt] == u'*') {
      star = ++patternAt;
      starText = at;
      continue;
    }
    if (const std::size_t used = MatchOne(pattern.substr(patternAt), text[at]); used != 0) {
      patternAt += used;
      ++at;
      continue;
    }
    if (!star) {
      return false;
    }
    patternAt = *star;
    at = ++starText;
  }
  while (patternAt < pattern.size() && pattern[patternAt] == u'*') {
    ++patternAt;
  }
  return patternAt == pattern.size();
}

}  // namespace sim
