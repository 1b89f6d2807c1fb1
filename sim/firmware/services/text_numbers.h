// Small conversions that the device path texts are made of: hexadecimal and decimal numbers, EISA identifiers, bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace sim {

std::string Hex(std::uint64_t value);                         // "0x1F"
std::string HexDigits(std::uint64_t value, unsigned digits);  // "001F"
std::string HexBytes(std::span<const std::byte> bytes);       // "00FF", in order
std::optional<std::string> EisaText(std::uint32_t id);        // 0x0A0341D0 is "PNP0A03"; nothing for other letters
std::optional<std::uint32_t> EisaFromText(std::string_view text);

// Decimal, or hexadecimal behind 0x; nothing for anything else or above `limit`.
std::optional<std::uint64_t> NumberFromText(std::string_view text, std::uint64_t limit = ~std::uint64_t{0});
// Pairs of hexadecimal digits; blanks, '-' and ':' between pairs are skipped.
std::optional<std::string> BytesFromHex(std::string_view text);

}  // namespace sim
