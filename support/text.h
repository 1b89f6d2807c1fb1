// ASCII and UTF-16 text: length, compare, conversion and owned copies.
#pragma once

#include <span>

#include "support/memory.h"
#include "support/pool.h"

namespace bds {

// Characters before the NUL; 0 for null.
template <typename Character>
UINTN TextLength(const Character* text) {
  UINTN length = 0;
  while (text != nullptr && LoadUnaligned<Character>(text + length) != 0) {
    ++length;
  }
  return length;
}

template <typename Character>
constexpr Character AsciiLower(Character character) {
  return character >= 'A' && character <= 'Z' ? static_cast<Character>(character + ('a' - 'A')) : character;
}

// The length without the blanks at the end.
template <typename Character>
UINTN TrimmedLength(const Character* text, UINTN length) {
  while (length != 0 && text[length - 1] == ' ') {
    --length;
  }
  return length;
}

template <typename Character>
bool TextEqual(const Character* a, const Character* b) {
  const UINTN length = TextLength(a);
  return length == TextLength(b) && EqualMemory(a, b, length * sizeof(Character));
}

// True when part occurs in text; both may be null, which holds nothing.
template <typename Character>
bool ContainsText(const Character* text, const Character* part) {
  const UINTN textLength = TextLength(text);
  const UINTN partLength = TextLength(part);
  for (UINTN at = 0; at + partLength <= textLength; ++at) {
    if (EqualMemory(text + at, part, partLength * sizeof(Character))) {
      return true;
    }
  }
  return false;
}

// A NUL-terminated pool copy of the first length characters; null when the pool is exhausted.
template <typename Character>
[[nodiscard]] PoolPtr<Character> CopyText(const Character* text, UINTN length) {
  auto copy = AllocateArray<Character>(length + 1);
  if (copy) {
    CopyMemory(copy.get(), text, length * sizeof(Character));
    copy[length] = 0;
  }
  return copy;
}

// A NUL-terminated ASCII pool copy of UTF-16 text: the low byte of each character.
[[nodiscard]] PoolPtr<char> NarrowText(const CHAR16* text, UINTN length);

// A NUL-terminated UTF-16 pool copy of ASCII text; null when the pool is exhausted.
[[nodiscard]] PoolPtr<CHAR16> WidenText(const char* text);
// The same of the first length characters.
[[nodiscard]] PoolPtr<CHAR16> WidenText(const char* text, UINTN length);

// A number in decimal, or in hexadecimal behind 0x, that fills the text up to its NUL or end.
[[nodiscard]] bool ParseNumber(std::span<const CHAR16> text, UINT64& value);

// The value of a hexadecimal digit, or -1.
template <typename Character>
constexpr int HexDigitValue(Character character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  const Character lower = AsciiLower(character);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace bds
