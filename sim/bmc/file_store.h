// The BMC's files: plain files of one folder, or of memory when nothing is to be kept.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

using FileBytes = std::vector<std::uint8_t>;

class FileStore {
 public:
  static constexpr std::size_t kMaxFileSize = 1024 * 1024;
  static constexpr std::size_t kMaxNameLength = 60;

  // Files live in memory.
  FileStore() = default;
  // Files live in the folder, which is made when the first one is written.
  explicit FileStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

  // Letters, digits, '.', '_' and '-', not beginning with a dot: nothing that could leave the folder.
  static bool IsValidName(std::string_view name);

  std::optional<FileBytes> Read(std::string_view name) const;
  // Creates or replaces; false for a name or size that is not allowed, or when the folder cannot be written.
  bool Write(std::string_view name, const FileBytes& bytes);
  bool Append(std::string_view name, const std::uint8_t* bytes, std::size_t size);
  bool Exists(std::string_view name) const;
  // Replaces a file of the new name.
  bool Rename(std::string_view from, std::string_view to);
  bool Remove(std::string_view name);
  std::vector<std::string> Names() const;  // sorted

 private:
  std::filesystem::path PathOf(std::string_view name) const { return *folder_ / name; }

  std::optional<std::filesystem::path> folder_;
  std::map<std::string, FileBytes, std::less<>> memory_;
};

}  // namespace sim
