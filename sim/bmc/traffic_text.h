// Bytes of the BMC's traffic as they stand in a log line.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace sim {

// In hexadecimal; of more than 24 bytes the first 16 and the number of all.
inline std::string TrafficBytes(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kWhole = 24, kShown = 16;
  const auto shown = bytes.first(bytes.size() > kWhole ? kShown : bytes.size());
  const std::string rest = shown.size() < bytes.size() ? fmt::format(" .. ({} bytes)", bytes.size()) : "";
  return fmt::format("{:02x}{}", fmt::join(shown, " "), rest);
}

}  // namespace sim
