// Paths of the file protocol, taken apart without a look at any volume.
#include <algorithm>

#include "sim/storage/file_system.h"

namespace sim {
namespace {

constexpr std::size_t kMaximumDepth = 64;

char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool IsSeparator(char character) { return character == '\\' || character == '/'; }

}  // namespace

bool SplitPath(std::string_view path, std::vector<std::string>& components) {
  components.clear();
  if (path.find('\0') != std::string_view::npos) return false;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of("\\/"), path.size());
    const std::string_view name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name.empty() || name == ".") continue;
    if (name != "..") {
      components.emplace_back(name);
      if (components.size() > kMaximumDepth) return false;
      continue;
    }
    if (components.empty()) return false;
    components.pop_back();
  }
  return true;
}

std::string JoinPath(std::string_view base, std::string_view path) {
  if (!path.empty() && IsSeparator(path.front())) return std::string(path);
  std::string joined(base);
  joined += '\\';
  joined += path;
  return joined;
}

bool SameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

}  // namespace sim
