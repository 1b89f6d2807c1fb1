#include "sim/server/load_option_view.h"

#include <fmt/format.h>

#include <cstring>

#include "sim/firmware/services/device_path_text.h"

namespace sim {
namespace {

bool StartsWith(const std::vector<std::byte>& data, char third) {
  return data.size() >= 4 && data[0] == std::byte{0} && data[1] == std::byte{0} &&
         data[2] == static_cast<std::byte>(third) && data[3] == std::byte{'O'};
}

}  // namespace

bool LoadOption::Legacy() const {
  return !paths.empty() && !paths.front().Empty() && paths.front().Get()->Type == BBS_DEVICE_PATH;
}
bool LoadOption::FirmwareMarked() const { return StartsWith(optionalData, 'B') || GroupMarked(); }
bool LoadOption::GroupMarked() const { return StartsWith(optionalData, 'G'); }

std::optional<LoadOption> ParseLoadOption(std::span<const std::byte> bytes) {
  constexpr std::size_t kHeader = 6;
  if (bytes.size() < kHeader) {
    return std::nullopt;
  }
  LoadOption option;
  std::uint16_t pathLength = 0;
  std::memcpy(&option.attributes, bytes.data(), 4);
  std::memcpy(&pathLength, bytes.data() + 4, 2);
  std::size_t at = kHeader;
  for (;; at += 2) {
    if (bytes.size() - at < 2) {
      return std::nullopt;
    }
    char16_t character = 0;
    std::memcpy(&character, bytes.data() + at, 2);
    if (character == 0) {
      break;
    }
    option.name.push_back(character);
  }
  at += 2;
  if (pathLength > bytes.size() - at) {
    return std::nullopt;
  }
  for (std::span<const std::byte> rest = bytes.subspan(at, pathLength); !rest.empty();) {
    const std::size_t size =
        DevicePathSize(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(rest.data()), rest.size());
    if (size == 0) {
      return std::nullopt;
    }
    option.paths.push_back(DevicePath::FromBytes(rest.first(size)));
    rest = rest.subspan(size);
  }
  const auto data = bytes.subspan(at + pathLength);
  option.optionalData.assign(data.begin(), data.end());
  return option;
}

std::optional<std::uint16_t> BootOptionNumber(std::u16string_view name) {
  if (name.size() != 8 || name.substr(0, 4) != u"Boot") {
    return std::nullopt;
  }
  std::uint16_t number = 0;
  for (const char16_t digit : name.substr(4)) {
    const char16_t lower = digit | 0x20;
    if (digit >= u'0' && digit <= u'9') {
      number = static_cast<std::uint16_t>(number << 4 | (digit - u'0'));
    } else if (lower >= u'a' && lower <= u'f') {
      number = static_cast<std::uint16_t>(number << 4 | (lower - u'a' + 10));
    } else {
      return std::nullopt;
    }
  }
  return number;
}

std::string ToUtf8(std::u16string_view text) {
  std::string utf8;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t code = text[i];
    const bool high = code >= 0xD800 && code < 0xDC00;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00U);
    } else if (code >= 0xD800 && code < 0xE000) {
      code = '?';
    }
    const auto tail = [&utf8, code](unsigned shift) { utf8 += static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) {
      utf8 += static_cast<char>(code);
    } else if (code < 0x800) {
      utf8 += static_cast<char>(0xC0 | code >> 6);
      tail(0);
    } else if (code < 0x10000) {
      utf8 += static_cast<char>(0xE0 | code >> 12);
      tail(6);
      tail(0);
    } else {
      utf8 += static_cast<char>(0xF0 | code >> 18);
      tail(12);
      tail(6);
      tail(0);
    }
  }
  return utf8;
}

std::string DevicePathToUtf8(const DevicePath& path) {
  const auto text = DevicePathText(path.Bytes());
  return text ? ToUtf8(*text) : fmt::format("({} bytes)", path.Size());
}

}  // namespace sim
