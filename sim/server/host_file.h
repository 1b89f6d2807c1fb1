// Files of the machine that the simulator runs on, as a command names them.
#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace sim {

// The file's bytes; nothing when it cannot be opened, is a folder, or fails while it is read.
inline std::optional<std::string> ReadHostFile(const std::filesystem::path& file) {
  std::error_code ignored;
  std::ifstream stream(file, std::ios::binary);
  if (!stream || std::filesystem::is_directory(file, ignored)) {
    return std::nullopt;
  }
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  if (stream.bad() || (bytes.fail() && !bytes.view().empty())) {
    return std::nullopt;
  }
  return std::move(bytes).str();
}

}  // namespace sim
