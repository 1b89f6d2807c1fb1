#include "support/text.h"

namespace bds {

PoolPtr<char> NarrowText(const CHAR16* text, UINTN length) {
  auto narrow = AllocateArray<char>(length + 1);
  if (!narrow) {
    return narrow;
  }
  for (UINTN i = 0; i < length; ++i) {
    narrow[i] = static_cast<char>(LoadUnaligned<CHAR16>(text + i) & 0xFF);
  }
  narrow[length] = 0;
  return narrow;
}

PoolPtr<CHAR16> WidenText(const char* text) { return WidenText(text, TextLength(text)); }

PoolPtr<CHAR16> WidenText(const char* text, UINTN length) {
  auto wide = AllocateArray<CHAR16>(length + 1);
  if (wide) {
    for (UINTN index = 0; index < length; ++index) {
      wide[index] = static_cast<UINT8>(text[index]);
    }
    wide[length] = 0;
  }
  return wide;
}

bool ParseNumber(std::span<const CHAR16> text, UINT64& value) {
  UINT64 base = 10;
  if (text.size() > 2 && text[0] == u'0' && AsciiLower(text[1]) == u'x') {
    base = 16;
    text = text.subspan(2);
  }
  UINT64 number = 0;
  UINTN digits = 0;
  for (; digits < text.size() && text[digits] != 0; ++digits) {
    const int digit = HexDigitValue(text[digits]);
    if (digit < 0 || static_cast<UINT64>(digit) >= base || number > (~UINT64{0} - static_cast<UINT64>(digit)) / base) {
      return false;
    }
    number = number * base + static_cast<UINT64>(digit);
  }
  value = number;
  return digits != 0;
}

}  // namespace bds
