// Case-insensitive comparison and pattern matching of UTF-16 text, and FAT 8.3 names (UEFI 2.10, 12.10).
#pragma once

#include <cstdint>
#include <string_view>

namespace sim {

// Folds ASCII and Latin-1 letters; every other character stands for itself.
char16_t FoldUpper(char16_t character);
char16_t FoldLower(char16_t character);

// Negative, zero or positive as the first text sorts before, with or after the second, letters' case aside.
std::int64_t CompareIgnoringCase(std::u16string_view left, std::u16string_view right);

// '*' any characters, '?' one, [abc] one of a set, [a-z] one of a range; letters' case aside. A set without its ']'
// matches nothing. Time grows with length of text times length of pattern, never faster.
bool MatchesPattern(std::u16string_view text, std::u16string_view pattern);

}  // namespace sim
