// Bytes of the BMC's traffic as they stand in a log line.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace sim {

inline constexpr std::size_t kFrameTraffic = 24;
inline constexpr std::size_t kWholeTraffic = ~std::size_t{0};

// In hexadecimal; of more than `whole` bytes the first 16 and the number of all.
inline std::string TrafficBytes(std::span<const std::uint8_t> bytes, std::size_t whole = kFrameTraffic) {
  constexpr std::size_t kShown = 16;
  const auto shown = bytes.first(bytes.size() > whole ? kShown : bytes.size());
  const std::string rest = shown.size() < bytes.size() ? fmt::format(" .. ({} bytes)", bytes.size()) : "";
  return fmt::format("{:02x}{}", fmt::join(shown, " "), rest);
}

}  // namespace sim
