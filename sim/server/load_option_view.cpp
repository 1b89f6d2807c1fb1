#include "sim/server/load_option_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "sim/bus/utf_text.h"
#include "sim/firmware/services/device_path_text.h"

namespace sim {
namespace {

constexpr std::string_view kMaskedPath("\xE7\x75\xE2\x99\xA0\x75\x37\x4B\xA2\xE6\xC5\x38\x5E\x6C\x00\xCB", 16);

bool StartsWith(const std::vector<std::byte>& data, char third) {
  return data.size() >= 4 && data[0] == std::byte{0} && data[1] == std::byte{0} &&
         data[2] == static_cast<std::byte>(third) && data[3] == std::byte{'O'};
}

}  // namespace

bool IsMask(const DevicePath& path) {
  const auto bytes = path.Bytes();
  return bytes.size() >= 20 && std::string_view(reinterpret_cast<const char*>(bytes.data()) + 4, 16) == kMaskedPath;
}

const DevicePath* LoadOption::Device() const {
  const auto found = std::ranges::find_if_not(paths, IsMask);
  return found == paths.end() ? nullptr : &*found;
}
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

std::vector<std::span<const std::byte>> PathNodes(const DevicePath& path) {
  std::vector<std::span<const std::byte>> nodes;
  for (std::span<const std::byte> rest = path.Bytes(); rest.size() >= sizeof(EFI_DEVICE_PATH_PROTOCOL);) {
    const auto* node = reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(rest.data());
    const std::size_t size = node->Length[0] + std::size_t{node->Length[1]} * 256;
    if (size < sizeof(*node) || size > rest.size()) {
      break;
    }
    if (node->Type != END_DEVICE_PATH_TYPE) {
      nodes.push_back(rest.first(size));
    }
    rest = rest.subspan(size);
  }
  return nodes;
}

std::string DevicePathToUtf8(const DevicePath& path) {
  const auto text = DevicePathText(path.Bytes());
  return text ? Utf8OfText(*text) : fmt::format("({} bytes)", path.Size());
}

}  // namespace sim
