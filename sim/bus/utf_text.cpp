// The conversions, code point by code point.
#include "sim/bus/utf_text.h"

#include <cstdint>

namespace sim {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// The code point at `at`, which moves behind it.
char32_t NextOfUtf8(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<std::uint8_t>(text[at++]);
  if (lead < 0x80) return lead;
  const int more = lead >= 0xF0 && lead < 0xF8   ? 3
                   : lead >= 0xE0 && lead < 0xF0 ? 2
                   : lead >= 0xC2 && lead < 0xE0 ? 1
                                                 : 0;
  if (more == 0) return kReplacement;
  char32_t code = lead & (0x3F >> more);
  for (int i = 0; i < more; ++i) {
    if (at >= text.size() || (static_cast<std::uint8_t>(text[at]) & 0xC0) != 0x80) return kReplacement;
    code = (code << 6) | (static_cast<std::uint8_t>(text[at++]) & 0x3F);
  }
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return surrogate || code > 0x10FFFF ? kReplacement : code;
}

char32_t NextOfUtf16(std::u16string_view text, std::size_t& at) {
  const char16_t unit = text[at++];
  if (unit < 0xD800 || unit >= 0xE000) return unit;
  if (unit >= 0xDC00 || at >= text.size() || (text[at] & 0xFC00) != 0xDC00) return kReplacement;
  return 0x10000 + ((static_cast<char32_t>(unit) & 0x3FF) << 10) + (text[at++] & 0x3FF);
}

}  // namespace

std::u16string Utf16OfText(std::string_view text) {
  std::u16string out;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t code = NextOfUtf8(text, at);
    if (code < 0x10000) {
      out.push_back(static_cast<char16_t>(code));
      continue;
    }
    out.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
  }
  return out;
}

std::string Utf8OfText(std::u16string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t code = NextOfUtf16(text, at);
    if (code < 0x80) {
      out.push_back(static_cast<char>(code));
      continue;
    }
    const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    out.push_back(static_cast<char>((0xF0 << (3 - more)) | (code >> (6 * more))));
    for (int i = more - 1; i >= 0; --i) out.push_back(static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F)));
  }
  return out;
}

}  // namespace sim
