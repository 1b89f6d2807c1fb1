// The BMC's files in a folder or in memory.
#include "sim/bmc/file_store.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>

namespace sim {
namespace fs = std::filesystem;

bool FileStore::IsValidName(std::string_view name) {
  const auto allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
  };
  return !name.empty() && name.size() <= kMaxNameLength && name[0] != '.' &&
         std::all_of(name.begin(), name.end(), allowed);
}

std::optional<FileBytes> FileStore::Read(std::string_view name) const {
  if (!IsValidName(name)) {
    return std::nullopt;
  }
  if (!folder_) {
    const auto found = memory_.find(name);
    return found == memory_.end() ? std::nullopt : std::optional(found->second);
  }
  std::error_code error;
  if (!fs::is_regular_file(PathOf(name), error)) {
    return std::nullopt;
  }
  std::ifstream file(PathOf(name), std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  return FileBytes(std::istreambuf_iterator<char>(file), {});
}

bool FileStore::Write(std::string_view name, const FileBytes& bytes) {
  if (!IsValidName(name) || bytes.size() > kMaxFileSize) {
    return false;
  }
  if (!folder_) {
    memory_[std::string(name)] = bytes;
    return true;
  }
  std::error_code error;
  fs::create_directories(*folder_, error);
  std::ofstream file(PathOf(name), std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  return file.good();
}

bool FileStore::Append(std::string_view name, const std::uint8_t* bytes, std::size_t size) {
  if (!folder_) {
    const auto found = memory_.find(name);
    if (found == memory_.end() || found->second.size() + size > kMaxFileSize) {
      return false;
    }
    found->second.insert(found->second.end(), bytes, bytes + size);
    return true;
  }
  std::error_code error;
  if (!Exists(name) || fs::file_size(PathOf(name), error) + size > kMaxFileSize || error) {
    return false;
  }
  std::ofstream file(PathOf(name), std::ios::binary | std::ios::app);
  file.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  file.close();
  return file.good();
}

bool FileStore::Exists(std::string_view name) const {
  if (!IsValidName(name)) {
    return false;
  }
  std::error_code error;
  return folder_ ? fs::is_regular_file(PathOf(name), error) : memory_.contains(name);
}

bool FileStore::Rename(std::string_view from, std::string_view to) {
  if (!Exists(from) || !IsValidName(to)) {
    return false;
  }
  if (folder_) {
    std::error_code error;
    fs::rename(PathOf(from), PathOf(to), error);
    return !error;
  }
  FileBytes bytes = memory_.find(from)->second;
  memory_.erase(memory_.find(from));
  memory_[std::string(to)] = std::move(bytes);
  return true;
}

bool FileStore::Remove(std::string_view name) {
  if (!Exists(name)) {
    return false;
  }
  if (folder_) {
    std::error_code error;
    return fs::remove(PathOf(name), error);
  }
  memory_.erase(memory_.find(name));
  return true;
}

std::vector<std::string> FileStore::Names() const {
  std::vector<std::string> names;
  if (!folder_) {
    for (const auto& [name, bytes] : memory_) {
      names.push_back(name);
    }
    return names;
  }
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(*folder_, error)) {
    if (entry.is_regular_file(error) && IsValidName(entry.path().filename().string())) {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace sim
