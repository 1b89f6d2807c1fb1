#include "sim/cli/printable_text.h"

#include <fmt/format.h>

#include <cstdint>

#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

bool IsSurrogate(char32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

// Characters that would act on the terminal or reorder the line instead of being shown.
bool IsActive(char32_t code) {
  const bool control = code < 0x20 || (code >= 0x7F && code <= 0x9F);
  const bool direction = code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
                         (code >= 0x2066 && code <= 0x2069) || code == 0x061C;
  return control || direction || code == 0x2028 || code == 0x2029 || code == 0xFEFF;
}

std::string Escape(char32_t code) {
  return code <= 0xFF ? fmt::format("\\x{:02X}", static_cast<std::uint32_t>(code))
                      : fmt::format("\\u{:04X}", static_cast<std::uint32_t>(code));
}

// The length of the sequence that this first byte begins; 0 when none does.
std::size_t SequenceLength(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xC2 && first <= 0xDF) {
    return 2;
  }
  if (first >= 0xE0 && first <= 0xEF) {
    return 3;
  }
  return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

// The code of a sequence that Utf16FromUtf8 accepted.
char32_t CodeOf(std::u16string_view units) {
  if (units.size() == 2) {
    return 0x10000 + ((units[0] & char32_t{0x3FF}) << 10) + (units[1] & char32_t{0x3FF});
  }
  return units[0];
}

}  // namespace

std::string PrintableText(std::u16string_view text) { return PrintableText(Utf8FromUtf16(text)); }

std::string PrintableText(std::string_view utf8, bool keepLines) {
  std::string shown;
  for (std::size_t at = 0; at < utf8.size();) {
    const std::size_t length = SequenceLength(static_cast<unsigned char>(utf8[at]));
    const std::string_view sequence = utf8.substr(at, length);
    const auto units = length != 0 && sequence.size() == length ? Utf16FromUtf8(sequence) : std::nullopt;
    if (!units || units->empty()) {
      shown += Escape(static_cast<unsigned char>(utf8[at]));
      ++at;
      continue;
    }
    const char32_t code = CodeOf(*units);
    const bool kept = (keepLines && code == U'\n') || !(IsActive(code) || IsSurrogate(code));
    shown += kept ? std::string(sequence) : Escape(code);
    at += length;
  }
  return shown;
}

}  // namespace sim
