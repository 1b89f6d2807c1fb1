// Reads and writes the variable folder. Every error names its file, since a person will have to look at it.
#include "sim/firmware/variables/efivars_folder.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kAttributeBytes = 4;
constexpr std::uintmax_t kMaxFileSize = 1024 * 1024;
constexpr std::string_view kTemporarySuffix = ".new";  // behind the GUID, so no variable's file name ends like this

bool IsLeftover(const std::string& fileName) {
  std::string ignored;
  return fileName.ends_with(kTemporarySuffix) &&
         ParseVariableFileName(fileName.substr(0, fileName.size() - kTemporarySuffix.size()), ignored).has_value();
}

bool ReadWhole(const fs::path& file, std::vector<std::byte>& bytes) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  bytes.resize(text.size());
  std::transform(text.begin(), text.end(), bytes.begin(), [](char c) { return static_cast<std::byte>(c); });
  return in.good() || in.eof();
}

std::uint32_t LittleEndian32(const std::vector<std::byte>& bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = kAttributeBytes; i-- > 0;) {
    value = (value << 8) | std::to_integer<std::uint32_t>(bytes[i]);
  }
  return value;
}

}  // namespace

bool EfivarsFolder::Fail(const fs::path& file, const std::string& reason) {
  error_ = file.string() + ": " + reason;
  return false;
}

// The folder's files by name; it is made if need be.
bool EfivarsFolder::List(std::vector<fs::path>& files) {
  std::error_code code;
  fs::create_directories(folder_, code);
  if (code) {
    return Fail(folder_, "cannot be made: " + code.message());
  }
  for (fs::directory_iterator at(folder_, code), end; !code && at != end; at.increment(code)) {
    files.push_back(at->path());
  }
  if (code) {
    return Fail(folder_, "cannot be read: " + code.message());
  }
  std::sort(files.begin(), files.end());
  return true;
}

bool EfivarsFolder::Load(VariableStore& store) {
  std::vector<fs::path> files;
  if (!List(files)) {
    return false;
  }
  std::error_code code;
  for (const fs::path& file : files) {
    if (IsLeftover(file.filename().string())) {
      fs::remove(file, code);
      continue;
    }
    if (!LoadFile(file, store)) {
      return false;
    }
  }
  return true;
}

bool EfivarsFolder::LoadFile(const fs::path& file, VariableStore& store) {
  std::error_code code;
  if (!fs::is_regular_file(file, code)) {
    return Fail(file, "is not a file; only variables belong here");
  }
  std::string reason;
  const auto parsed = ParseVariableFileName(file.filename().string(), reason);
  if (!parsed) {
    return Fail(file, reason);
  }
  const std::uintmax_t size = fs::file_size(file, code);
  if (code || size > kMaxFileSize) {
    return Fail(file, "is larger than any variable");
  }
  std::vector<std::byte> bytes;
  if (!ReadWhole(file, bytes)) {
    return Fail(file, "cannot be read");
  }
  if (bytes.size() <= kAttributeBytes) {
    return Fail(file, "holds " + std::to_string(bytes.size()) + " bytes; four attribute bytes and data were expected");
  }
  Variable variable{parsed->name, parsed->guid, LittleEndian32(bytes), {bytes.begin() + kAttributeBytes, bytes.end()}};
  if ((variable.attributes & ~kVariableKnownAttributes) == 0 && !variable.NonVolatile()) {
    notes_.push_back(file.filename().string() + " is volatile and was not taken over");
    return true;
  }
  return store.Preload(std::move(variable), reason) || Fail(file, reason);
}

bool EfivarsFolder::Save(const VariableStore& store) {
  std::error_code code;
  fs::create_directories(folder_, code);
  return std::all_of(store.All().begin(), store.All().end(),
                     [this](const Variable& variable) { return !variable.NonVolatile() || Write(variable); });
}

bool EfivarsFolder::Mirror(const VariableStore& store) {
  std::vector<fs::path> files;
  if (!List(files)) {
    return false;
  }
  std::string reason;
  for (const fs::path& file : files) {
    if (!IsLeftover(file.filename().string()) && !ParseVariableFileName(file.filename().string(), reason)) {
      return Fail(file, "only variables belong here: " + reason);
    }
  }
  std::error_code code;
  for (const fs::path& file : files) {
    if (!fs::remove(file, code)) {
      return Fail(file, "cannot be removed: " + code.message());
    }
  }
  return std::ranges::all_of(store.All(), [this](const Variable& variable) { return Write(variable); });
}

bool EfivarsFolder::Write(const Variable& variable) {
  const fs::path file = folder_ / VariableFileName(variable.name, variable.guid);
  const fs::path temporary = file.string() + std::string(kTemporarySuffix);
  std::string bytes;
  for (std::size_t i = 0; i < kAttributeBytes; ++i) {
    bytes.push_back(static_cast<char>(variable.attributes >> (8 * i)));
  }
  bytes.append(reinterpret_cast<const char*>(variable.data.data()), variable.data.size());
  std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  std::error_code code;
  if (!out) {
    fs::remove(temporary, code);
    return Fail(file, "cannot be written");
  }
  // What writes in place, without cutting the file at the variable's end, is kept from it.
  fs::permissions(temporary, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read, code);
  if (!code) {
    fs::rename(temporary, file, code);
  }
  return !code || Fail(file, "cannot be written: " + code.message());
}

bool EfivarsFolder::Remove(const Variable& variable) {
  const fs::path file = folder_ / VariableFileName(variable.name, variable.guid);
  std::error_code code;
  fs::remove(file, code);
  return !code || Fail(file, "cannot be removed: " + code.message());
}

}  // namespace sim
