// Files of the machine that the simulator runs on, as a command names them.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

namespace sim {

// The file's bytes; nothing when it cannot be opened, is a folder, or fails while it is read.
inline std::optional<std::string> ReadHostFile(const std::filesystem::path& file) {
  std::error_code ignored;
  std::ifstream stream(file, std::ios::binary);
  if (!stream || std::filesystem::is_directory(file, ignored)) {
    return std::nullopt;
  }
  std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  return stream.bad() ? std::nullopt : std::optional(std::move(bytes));
}

}  // namespace sim
