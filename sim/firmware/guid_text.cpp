#include "sim/firmware/guid_text.h"

#include <fmt/format.h>

#include <cstring>

namespace sim {

std::string GuidText(const EFI_GUID& guid) {
  return fmt::format("{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}", guid.Data1, guid.Data2,
                     guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4],
                     guid.Data4[5], guid.Data4[6], guid.Data4[7]);
}

std::optional<EFI_GUID> ParseGuid(std::string_view text) {
  constexpr std::string_view kShape = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  if (text.size() != kShape.size()) {
    return std::nullopt;
  }
  std::uint8_t digits[32];
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (kShape[i] == '-') {
      if (text[i] != '-') {
        return std::nullopt;
      }
      continue;
    }
    const char lower = static_cast<char>(text[i] | 0x20);
    if (text[i] >= '0' && text[i] <= '9') {
      digits[count++] = static_cast<std::uint8_t>(text[i] - '0');
    } else if (lower >= 'a' && lower <= 'f') {
      digits[count++] = static_cast<std::uint8_t>(lower - 'a' + 10);
    } else {
      return std::nullopt;
    }
  }
  const auto value = [&digits](std::size_t first, std::size_t length) {
    std::uint32_t number = 0;
    for (std::size_t i = first; i < first + length; ++i) {
      number = number << 4 | digits[i];
    }
    return number;
  };
  EFI_GUID guid{value(0, 8), static_cast<UINT16>(value(8, 4)), static_cast<UINT16>(value(12, 4)), {}};
  for (std::size_t i = 0; i < 8; ++i) {
    guid.Data4[i] = static_cast<UINT8>(value(16 + 2 * i, 2));
  }
  return guid;
}

bool GuidLess::operator()(const EFI_GUID& left, const EFI_GUID& right) const {
  return std::memcmp(&left, &right, sizeof(EFI_GUID)) < 0;
}

}  // namespace sim
