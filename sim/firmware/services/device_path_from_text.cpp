// Text to device paths: cut into instances, nodes and arguments; the table of node names reads each node.
#include <algorithm>

#include "sim/firmware/services/device_path_text.h"
#include "sim/firmware/services/node_from_text.h"

namespace sim {
namespace {

using Node = std::optional<std::vector<std::byte>>;
constexpr std::size_t kMaxNodeSize = 0xFFFF;

// Cuts at a delimiter that stands outside parentheses and quotes.
std::vector<std::u16string_view> Split(std::u16string_view text, char16_t delimiter) {
  std::vector<std::u16string_view> parts;
  int depth = 0;
  bool quoted = false;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    quoted = text[i] == u'"' ? !quoted : quoted;
    depth += quoted ? 0 : text[i] == u'(' ? 1 : text[i] == u')' ? -1 : 0;
    if (text[i] == delimiter && depth == 0 && !quoted) {
      parts.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  parts.push_back(text.substr(start));
  return parts;
}

std::string Argument(std::u16string_view text) {
  while (!text.empty() && text.front() == u' ') {
    text.remove_prefix(1);
  }
  while (!text.empty() && text.back() == u' ') {
    text.remove_suffix(1);
  }
  if (text.size() >= 2 && text.front() == u'"' && text.back() == u'"') {
    text = text.substr(1, text.size() - 2);
  }
  std::string ascii;
  std::transform(text.begin(), text.end(), std::back_inserter(ascii),
                 [](char16_t c) { return c < 0x80 ? static_cast<char>(c) : '?'; });
  return ascii;
}

std::vector<std::byte> FilePathNode(std::u16string_view text) {
  std::u16string name(text);
  name.push_back(u'\0');
  return RawNode(MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP, name.data(), name.size() * sizeof(char16_t));
}

void AppendEnd(std::vector<std::byte>& path, std::uint8_t subType) {
  const auto node = RawNode(END_DEVICE_PATH_TYPE, subType, nullptr, 0);
  path.insert(path.end(), node.begin(), node.end());
}

// A backslash parts nodes as a slash does (UEFI 2.10, 10.6.1.1), but is a letter of a file's path: here it ends a node
// that has a name and arguments.
std::u16string_view WithoutSeparator(std::u16string_view part) {
  const std::u16string_view node = part.substr(0, part.size() - 1);
  const bool ended = part.back() == u'\\' && node.ends_with(u')');
  return ended && FindReader(Argument(node.substr(0, node.find(u'(')))) ? node : part;
}

}  // namespace

Node DeviceNodeFromText(std::u16string_view text) {
  if (text.empty() || text.size() > kMaxNodeSize / 4) {
    return std::nullopt;
  }
  const std::size_t open = text.find(u'(');
  if (open == std::u16string_view::npos || text.back() != u')') {
    return FilePathNode(text);
  }
  const auto reader = FindReader(Argument(text.substr(0, open)));
  if (!reader) {
    return FilePathNode(text);
  }
  const std::u16string_view inside = text.substr(open + 1, text.size() - open - 2);
  std::vector<std::string> texts;
  for (const std::u16string_view part : Split(inside, u',')) {
    texts.push_back(Argument(part));
  }
  Arguments arguments(std::move(texts));
  auto node = reader->read(arguments, *reader);
  return arguments.Failed() || node.size() > kMaxNodeSize ? std::nullopt : Node(std::move(node));
}

Node DevicePathFromText(std::u16string_view text) {
  std::vector<std::byte> path;
  const auto instances = Split(text, u',');
  for (std::size_t i = 0; i < instances.size(); ++i) {
    for (const std::u16string_view part : Split(instances[i], u'/')) {
      if (part.empty()) {
        continue;
      }
      const auto node = DeviceNodeFromText(WithoutSeparator(part));
      if (!node) {
        return std::nullopt;
      }
      path.insert(path.end(), node->begin(), node->end());
    }
    AppendEnd(path, i + 1 == instances.size() ? END_ENTIRE_DEVICE_PATH_SUBTYPE : END_INSTANCE_DEVICE_PATH_SUBTYPE);
  }
  return path;
}

}  // namespace sim
