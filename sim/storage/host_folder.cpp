// A folder of the host as a volume. Every step down is an openat that refuses symbolic links, so that a folder that
// changes while it is read still lets nothing outside be reached.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "sim/storage/file_system.h"

namespace sim {
namespace {

constexpr std::size_t kMaximumEntries = 65'536;

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int Get() const { return number_; }

 private:
  int number_;
};

struct DirCloser {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

Descriptor OpenBelow(int parent, const char* name) {
  return Descriptor(::openat(parent, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
}

// False for anything that is neither a regular file nor a folder.
bool DescribeStat(const struct stat& facts, FileEntry& entry) {
  if (!S_ISREG(facts.st_mode) && !S_ISDIR(facts.st_mode)) return false;
  entry.attributes = S_ISDIR(facts.st_mode) ? kFileDirectory : kFileArchive;
  entry.size = S_ISDIR(facts.st_mode) ? 0 : static_cast<std::uint64_t>(facts.st_size);
  entry.modified = facts.st_mtime;
  return true;
}

EFI_STATUS ListFolder(int folder, std::vector<FileEntry>& entries) {
  const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (copy < 0) return EFI_DEVICE_ERROR;
  const std::unique_ptr<DIR, DirCloser> directory(::fdopendir(copy));
  if (directory == nullptr) {
    ::close(copy);
    return EFI_DEVICE_ERROR;
  }
  while (const dirent* member = ::readdir(directory.get())) {
    FileEntry entry{.name = member->d_name};
    struct stat facts {};
    if (entry.name == "." || entry.name == ".." || entries.size() >= kMaximumEntries) continue;
    if (::fstatat(folder, member->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (DescribeStat(facts, entry)) entries.push_back(std::move(entry));
  }
  std::sort(entries.begin(), entries.end(), [](const FileEntry& a, const FileEntry& b) { return a.name < b.name; });
  return EFI_SUCCESS;
}

class HostFile final : public OpenedFile {
 public:
  HostFile(Descriptor file, FileEntry entry) : file_(std::move(file)), entry_(std::move(entry)) {}

  [[nodiscard]] const FileEntry& Entry() const override { return entry_; }

  [[nodiscard]] EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out, std::size_t& done) override {
    done = 0;
    if (entry_.IsDirectory()) return EFI_UNSUPPORTED;
    if (offset >= entry_.size) return EFI_SUCCESS;
    const std::size_t wanted = std::min<std::uint64_t>(out.size(), entry_.size - offset);
    while (done < wanted) {
      const ssize_t read = ::pread(file_.Get(), out.data() + done, wanted - done, static_cast<off_t>(offset + done));
      if (read < 0 && errno == EINTR) continue;
      if (read < 0) return EFI_DEVICE_ERROR;
      if (read == 0) break;
      done += static_cast<std::size_t>(read);
    }
    return EFI_SUCCESS;
  }

  [[nodiscard]] EFI_STATUS List(std::vector<FileEntry>& entries) override {
    entries.clear();
    return entry_.IsDirectory() ? ListFolder(file_.Get(), entries) : EFI_UNSUPPORTED;
  }

  // Opens the member with that name: the exact spelling first, then the first that differs in case only.
  [[nodiscard]] EFI_STATUS OpenMember(const std::string& wanted, std::unique_ptr<HostFile>& member) const {
    std::string name = wanted;
    Descriptor file = OpenBelow(file_.Get(), name.c_str());
    if (file.Get() < 0) {
      std::vector<FileEntry> entries;
      if (const EFI_STATUS status = ListFolder(file_.Get(), entries); EFI_ERROR(status)) return status;
      const auto found = std::find_if(entries.begin(), entries.end(),
                                      [&](const FileEntry& entry) { return SameName(entry.name, wanted); });
      if (found == entries.end()) return EFI_NOT_FOUND;
      name = found->name;
      file = OpenBelow(file_.Get(), name.c_str());
    }
    struct stat facts {};
    FileEntry entry{.name = name};
    if (file.Get() < 0 || ::fstat(file.Get(), &facts) != 0 || !DescribeStat(facts, entry)) return EFI_NOT_FOUND;
    member = std::make_unique<HostFile>(std::move(file), std::move(entry));
    return EFI_SUCCESS;
  }

 private:
  Descriptor file_;
  FileEntry entry_;
};

class HostFolder final : public FileSystemReader {
 public:
  HostFolder(Descriptor root, std::string label) : root_(std::move(root)) { info_.label = std::move(label); }

  [[nodiscard]] const VolumeInfo& Info() const override { return info_; }

  [[nodiscard]] EFI_STATUS Open(std::string_view path, std::unique_ptr<OpenedFile>& file) override {
    std::vector<std::string> components;
    if (!SplitPath(path, components)) return EFI_NOT_FOUND;
    Descriptor root(::openat(root_.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat facts {};
    FileEntry entry;
    if (root.Get() < 0 || ::fstat(root.Get(), &facts) != 0 || !DescribeStat(facts, entry)) return EFI_DEVICE_ERROR;
    auto opened = std::make_unique<HostFile>(std::move(root), std::move(entry));
    for (const std::string& component : components) {
      if (!opened->Entry().IsDirectory()) return EFI_NOT_FOUND;
      std::unique_ptr<HostFile> next;
      if (const EFI_STATUS status = opened->OpenMember(component, next); EFI_ERROR(status)) return status;
      opened = std::move(next);
    }
    file = std::move(opened);
    return EFI_SUCCESS;
  }

 private:
  Descriptor root_;
  VolumeInfo info_;
};

}  // namespace

EFI_STATUS OpenHostFolder(const std::filesystem::path& folder, std::string label,
                          std::unique_ptr<FileSystemReader>& reader) {
  Descriptor root(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (root.Get() < 0) return EFI_NOT_FOUND;
  reader = std::make_unique<HostFolder>(std::move(root), std::move(label));
  return EFI_SUCCESS;
}

}  // namespace sim
