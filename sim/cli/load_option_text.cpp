#include "sim/cli/load_option_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "sim/cli/printable_text.h"
#include "sim/firmware/services/device_path_text.h"
#include "sim/server/load_option_view.h"

namespace sim {
namespace {

using Bytes = std::span<const std::byte>;
using Marker = std::array<std::byte, 4>;

constexpr Marker kFirmwareMarker{std::byte{0}, std::byte{0}, std::byte{'B'}, std::byte{'O'}};
constexpr Marker kGroupMarker{std::byte{0}, std::byte{0}, std::byte{'G'}, std::byte{'O'}};
constexpr Marker kMemberMarker{std::byte{0}, std::byte{0}, std::byte{'N'}, std::byte{'O'}};
constexpr std::size_t kMemberHeaderSize = sizeof(Marker) + sizeof(std::uint32_t);
constexpr unsigned kDeepestMember = 4;
constexpr std::uint32_t kKnownAttributes = LOAD_OPTION_ACTIVE | LOAD_OPTION_FORCE_RECONNECT | LOAD_OPTION_HIDDEN;

bool TakeMarker(Bytes& bytes, const Marker& marker) {
  if (bytes.size() < marker.size() || !std::equal(marker.begin(), marker.end(), bytes.begin())) {
    return false;
  }
  bytes = bytes.subspan(marker.size());
  return true;
}

// The image of the member record in front, which is taken off; nothing when there is none or its length lies.
std::optional<Bytes> TakeMember(Bytes& bytes) {
  Bytes rest = bytes;
  std::uint32_t size = 0;
  if (!TakeMarker(rest, kMemberMarker) || rest.size() < sizeof(size)) {
    return std::nullopt;
  }
  std::memcpy(&size, rest.data(), sizeof(size));
  if (size < kMemberHeaderSize || size > bytes.size()) {
    return std::nullopt;
  }
  const Bytes image = bytes.subspan(kMemberHeaderSize, size - kMemberHeaderSize);
  bytes = bytes.subspan(size);
  return image;
}

std::string AttributesText(std::uint32_t attributes) {
  constexpr std::pair<std::uint32_t, const char*> kBits[] = {
      {LOAD_OPTION_ACTIVE, "active"},
      {LOAD_OPTION_FORCE_RECONNECT, "force reconnect"},
      {LOAD_OPTION_HIDDEN, "hidden"},
  };
  std::vector<std::string> words;
  if ((attributes & LOAD_OPTION_ACTIVE) == 0) {
    words.emplace_back("inactive");
  }
  for (const auto& [bit, word] : kBits) {
    if ((attributes & bit) != 0) {
      words.emplace_back(word);
    }
  }
  if ((attributes & ~kKnownAttributes) != 0) {
    words.push_back(fmt::format("0x{:X}", attributes & ~kKnownAttributes));
  }
  return fmt::format("{}", fmt::join(words, ", "));
}

std::string PathText(const DevicePath& path) {
  const auto text = DevicePathText(path.Bytes());
  return text ? PrintableText(*text) : "malformed";
}

void AddOption(std::vector<std::string>& lines, Bytes bytes, const std::string& indent, unsigned depth);

void AddOptionalData(std::vector<std::string>& lines, Bytes data, const std::string& indent, unsigned depth) {
  const bool group = TakeMarker(data, kGroupMarker);
  if (group || TakeMarker(data, kFirmwareMarker)) {
    lines.push_back(indent + (group ? "made by the firmware, group" : "made by the firmware"));
  }
  for (unsigned number = 1; group && depth < kDeepestMember; ++number) {
    const auto member = TakeMember(data);
    if (!member) {
      break;
    }
    lines.push_back(fmt::format("{}member {}", indent, number));
    AddOption(lines, *member, indent + "  ", depth + 1);
  }
  if (!data.empty()) {
    lines.push_back(fmt::format("{}optional data, {} bytes", indent, data.size()));
    for (const std::string& line : HexText(data)) {
      lines.push_back(indent + "  " + line);
    }
  }
}

void AddOption(std::vector<std::string>& lines, Bytes bytes, const std::string& indent, unsigned depth) {
  const auto option = ParseLoadOption(bytes);
  if (!option) {
    lines.push_back(fmt::format("{}no load option, {} bytes", indent, bytes.size()));
    for (const std::string& line : HexText(bytes)) {
      lines.push_back(indent + "  " + line);
    }
    return;
  }
  lines.push_back(fmt::format("{}\"{}\" {}", indent, PrintableText(option->name), AttributesText(option->attributes)));
  for (const DevicePath& path : option->paths) {
    lines.push_back(fmt::format("{}path {}", indent, PathText(path)));
  }
  AddOptionalData(lines, option->optionalData, indent, depth);
}

}  // namespace

std::vector<std::string> HexText(std::span<const std::byte> bytes, std::size_t most) {
  constexpr std::size_t kPerLine = 16;
  std::vector<std::string> lines;
  const std::size_t shown = std::min(bytes.size(), most);
  for (std::size_t at = 0; at < shown; at += kPerLine) {
    std::string hex;
    std::string text;
    for (const std::byte byte : bytes.subspan(at, std::min(kPerLine, shown - at))) {
      const auto value = std::to_integer<unsigned char>(byte);
      hex += fmt::format("{:02x} ", value);
      text += value >= 0x20 && value < 0x7F ? static_cast<char>(value) : '.';
    }
    lines.push_back(fmt::format("{:04x}  {:<48} {}", at, hex, text));
  }
  if (shown < bytes.size()) {
    lines.push_back(fmt::format("and {} bytes more", bytes.size() - shown));
  }
  return lines;
}

std::vector<std::string> LoadOptionText(std::span<const std::byte> bytes) {
  std::vector<std::string> lines;
  AddOption(lines, bytes, "", 0);
  return lines;
}

}  // namespace sim
