// Number conversions for device path texts.
#include "sim/firmware/services/text_numbers.h"

#include <fmt/format.h>

#include <charconv>

namespace sim {

std::string Hex(std::uint64_t value) { return fmt::format("0x{:X}", value); }
std::string HexDigits(std::uint64_t value, unsigned digits) { return fmt::format("{:0{}X}", value, digits); }

std::string HexBytes(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte byte : bytes) {
    text += HexDigits(std::to_integer<unsigned>(byte), 2);
  }
  return text;
}

std::optional<std::string> EisaText(std::uint32_t id) {
  // Three letters of five bits in the low half (0x41D0 is "PNP"), the product number in the high half.
  const std::uint32_t packed = id & 0xFFFF;
  std::string text;
  for (int shift = 10; shift >= 0; shift -= 5) {
    const std::uint32_t letter = (packed >> shift) & 0x1F;
    if (letter < 1 || letter > 26) {
      return std::nullopt;
    }
    text.push_back(static_cast<char>('A' + letter - 1));
  }
  return (packed & 0x8000) != 0 ? std::nullopt : std::optional(text + HexDigits(id >> 16, 4));
}

std::optional<std::uint32_t> EisaFromText(std::string_view text) {
  if (text.size() != 7) {
    return std::nullopt;
  }
  std::uint32_t packed = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    const char letter = static_cast<char>(text[i] & ~0x20);
    if (letter < 'A' || letter > 'Z') {
      return std::nullopt;
    }
    packed = (packed << 5) | static_cast<std::uint32_t>(letter - 'A' + 1);
  }
  const auto product = NumberFromText("0x" + std::string(text.substr(3)), 0xFFFF);
  return product ? std::optional(packed | (static_cast<std::uint32_t>(*product) << 16)) : std::nullopt;
}

std::optional<std::uint64_t> NumberFromText(std::string_view text, std::uint64_t limit) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  std::uint64_t value = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
  const bool whole = result.ec == std::errc{} && result.ptr == digits.data() + digits.size();
  return whole && value <= limit ? std::optional(value) : std::nullopt;
}

std::optional<std::string> BytesFromHex(std::string_view text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == ' ' || text[at] == '-' || text[at] == ':') {
      ++at;
      continue;
    }
    const std::string_view pair = text.substr(at, 2);
    unsigned value = 0;
    const auto result = std::from_chars(pair.data(), pair.data() + pair.size(), value, 16);
    if (pair.size() != 2 || result.ec != std::errc{} || result.ptr != pair.data() + 2) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<char>(value));
    at += 2;
  }
  return bytes;
}

}  // namespace sim
