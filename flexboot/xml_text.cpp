// Comparing and converting the texts of tokens.
#include "flexboot/xml_cursor.h"

namespace bds {
namespace {

constexpr INT64 kLargest = 0x7FFFFFFF;
constexpr INT64 kSmallest = -kLargest - 1;

int Folded(char character) {
  const auto plain = static_cast<unsigned char>(character);
  return plain >= 'a' && plain <= 'z' ? plain - 'a' + 'A' : plain;
}

// The value of a digit or letter; anything else has one above all bases.
UINT32 DigitValue(char character) {
  const int folded = Folded(character);
  if (folded >= '0' && folded <= '9') {
    return static_cast<UINT32>(folded - '0');
  }
  return folded >= 'A' && folded <= 'Z' ? static_cast<UINT32>(folded - 'A' + 10) : ~UINT32{0};
}

UINT32 TakeBase(const char*& text) {
  if (*text != '0') {
    return 10;
  }
  ++text;
  if (*text != 'x' && *text != 'X') {
    return 8;
  }
  ++text;
  return 16;
}

}  // namespace

int XmlStriCmp(const char* a, const char* b) {
  if (a == b) {
    return 0;
  }
  if (a == nullptr || b == nullptr) {
    return a == nullptr ? -1 : 1;
  }
  for (; *a != 0 && Folded(*a) == Folded(*b); ++a, ++b) {
  }
  return Folded(*a) - Folded(*b);
}

INT32 XmlStrToInt(const char* text, const char** end, UINT32 base) {
  while (*text == ' ' || *text == '\t') {
    ++text;
  }
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') {
    ++text;
  }
  if (base == 0) {
    base = TakeBase(text);
  }
  INT64 number = 0;
  for (; DigitValue(*text) < base; ++text) {
    number = number * base + DigitValue(*text);
    number = number > -kSmallest ? -kSmallest : number;  // one above the largest still tells an overflow
  }
  if (end != nullptr) {
    *end = text;
  }
  number = negative ? -number : number;
  return static_cast<INT32>(number > kLargest ? kLargest : number);
}

}  // namespace bds
