// The file name of a variable and what it stands for, both ways.
#include "sim/firmware/variables/variable_name_text.h"

#include <algorithm>
#include <cctype>

#include "sim/firmware/guid_text.h"

namespace sim {
namespace {

constexpr std::size_t kGuidLength = 36;

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c < 0xDC00; }
bool IsLowSurrogate(char16_t c) { return c >= 0xDC00 && c < 0xE000; }

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
    return;
  }
  const int trailing = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  static constexpr unsigned kLead[] = {0, 0xC0, 0xE0, 0xF0};
  out.push_back(static_cast<char>(kLead[trailing] | (c >> (6 * trailing))));
  for (int i = trailing - 1; i >= 0; --i) {
    out.push_back(static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F)));
  }
}

// The number of one UTF-8 sequence at `at`, which moves behind it; nothing when it is malformed.
std::optional<char32_t> TakeUtf8(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 0 || text.size() - at < length) {
    return std::nullopt;
  }
  static constexpr char32_t kLeadMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  static constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  char32_t c = lead & kLeadMask[length];
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) {
      return std::nullopt;
    }
    c = (c << 6) | (next & 0x3F);
  }
  if (c < kLeast[length] || c > 0x10FFFF) {
    return std::nullopt;
  }
  at += length;
  return c;
}

std::string LowerGuid(const EFI_GUID& guid) {
  std::string text = GuidText(guid);
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::string Unescaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view three = text.substr(i, 3);
    if (three == "%2F" || three == "%25") {
      out.push_back(three == "%2F" ? '/' : '%');
      i += 2;
      continue;
    }
    out.push_back(text[i]);
  }
  return out;
}

}  // namespace

std::string Utf8FromUtf16(std::u16string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::optional<std::u16string> Utf16FromUtf8(std::string_view text) {
  std::u16string out;
  for (std::size_t at = 0; at < text.size();) {
    const auto c = TakeUtf8(text, at);
    if (!c) {
      return std::nullopt;
    }
    if (*c < 0x10000) {
      out.push_back(static_cast<char16_t>(*c));
      continue;
    }
    out.push_back(static_cast<char16_t>(0xD800 + ((*c - 0x10000) >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + ((*c - 0x10000) & 0x3FF)));
  }
  return out;
}

std::string VariableFileName(std::u16string_view name, const EFI_GUID& guid) {
  std::string out;
  for (const char c : Utf8FromUtf16(name)) {
    out += c == '/' ? "%2F" : c == '%' ? "%25" : std::string(1, c);
  }
  return out + "-" + LowerGuid(guid);
}

std::optional<ParsedVariableFileName> ParseVariableFileName(std::string_view fileName, std::string& error) {
  if (fileName.size() < kGuidLength + 2 || fileName[fileName.size() - kGuidLength - 1] != '-') {
    error = "the file name is not NAME-GUID";
    return std::nullopt;
  }
  const std::string_view guidText = fileName.substr(fileName.size() - kGuidLength);
  const auto guid = ParseGuid(guidText);
  if (!guid) {
    error = "the file name does not end with a GUID";
    return std::nullopt;
  }
  if (LowerGuid(*guid) != guidText) {
    error = "the GUID in the file name must be written in lower case";
    return std::nullopt;
  }
  const auto name = Utf16FromUtf8(Unescaped(fileName.substr(0, fileName.size() - kGuidLength - 1)));
  if (!name) {
    error = "the variable's name in the file name is not UTF-8";
    return std::nullopt;
  }
  return ParsedVariableFileName{*name, *guid};
}

}  // namespace sim
