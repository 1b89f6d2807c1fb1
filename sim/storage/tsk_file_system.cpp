// FAT12, FAT16, FAT32 and ISO 9660 through The Sleuth Kit. The library also shows what no user sees (deleted names,
// its own "$" files, orphans); only allocated names of the volume itself pass.
#include <algorithm>
#include <array>

#include "sim/storage/file_system.h"
#include "sim/storage/little_endian.h"
#include "sim/storage/tsk_image.h"
#include "sim/storage/tsk_library.h"
#include "sim/storage/volume_probe.h"

namespace sim {
namespace {

constexpr std::string_view kLabelSuffix = " (Volume Label Entry)";
constexpr std::size_t kMaximumEntries = 65'536;

struct FileSystemCloser {
  void operator()(TSK_FS_INFO* system) const { tsk_fs_close(system); }
};
struct DirectoryCloser {
  void operator()(TSK_FS_DIR* directory) const { tsk_fs_dir_close(directory); }
};
struct FileCloser {
  void operator()(TSK_FS_FILE* file) const { tsk_fs_file_close(file); }
};
using TskDirectory = std::unique_ptr<TSK_FS_DIR, DirectoryCloser>;
using TskFile = std::unique_ptr<TSK_FS_FILE, FileCloser>;

// The image has to outlive the file system, so it is declared first.
struct TskVolume {
  TskImage image;
  std::unique_ptr<TSK_FS_INFO, FileSystemCloser> system;
  VolumeKind kind = VolumeKind::None;
  std::uint64_t firstFatSlot = 0;  // byte offset, FAT only
};

EFI_STATUS LastError() {
  const std::uint32_t code = tsk_error_get_errno();
  tsk_error_reset();
  return code == TSK_ERR_FS_READ || code == TSK_ERR_IMG_READ || code == TSK_ERR_IMG_READ_OFF ? EFI_DEVICE_ERROR
                                                                                             : EFI_VOLUME_CORRUPTED;
}

std::string WithoutTrailingBlanks(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

bool IsLabel(std::string_view name) { return name.ends_with(kLabelSuffix); }

bool IsShown(const TSK_FS_NAME& name, const TSK_FS_INFO& system) {
  if ((name.flags & TSK_FS_NAME_FLAG_ALLOC) == 0 || name.name == nullptr) return false;
  if (name.type != TSK_FS_NAME_TYPE_DIR && name.type != TSK_FS_NAME_TYPE_REG) return false;
  if (name.meta_addr < system.first_inum || name.meta_addr > system.last_inum) return false;
  const std::string_view text = name.name;
  return !text.empty() && text != "." && text != ".." && !IsLabel(text);
}

// Where the library's FAT file numbers lie: it counts 32-byte directory slots from the first sector behind the FATs,
// the first being number 3, and keeps the attribute byte found there to itself.
constexpr TSK_INUM_T kFirstFatNumber = 3;
constexpr std::uint64_t kFatSlotSize = 32;

std::uint64_t FirstFatSlot(TSK_IMG_INFO& image) {
  std::array<std::byte, 64> sector{};
  if (tsk_img_read(&image, 0, reinterpret_cast<char*>(sector.data()), sector.size()) != 64) return 0;
  const std::uint64_t sectorSize = ReadLittle<std::uint16_t>(sector, 11);
  const std::uint64_t fatSectors16 = ReadLittle<std::uint16_t>(sector, 22);
  const std::uint64_t fatSectors = fatSectors16 != 0 ? fatSectors16 : ReadLittle<std::uint32_t>(sector, 36);
  const std::uint64_t fats = std::to_integer<std::uint64_t>(sector[16]);
  return (ReadLittle<std::uint16_t>(sector, 14) + fats * fatSectors) * sectorSize;
}

std::uint64_t FatAttributes(const TSK_FS_FILE& file, std::uint64_t firstSlot) {
  if (file.meta->addr < kFirstFatNumber || file.meta->addr == file.fs_info->root_inum) return 0;
  const std::uint64_t offset = firstSlot + (file.meta->addr - kFirstFatNumber) * kFatSlotSize + 11;
  char attributes = 0;
  if (tsk_img_read(file.fs_info->img_info, static_cast<TSK_OFF_T>(offset), &attributes, 1) != 1) return 0;
  return static_cast<std::uint8_t>(attributes) & (kFileReadOnly | kFileHidden | kFileSystem | kFileArchive);
}

FileEntry MakeEntry(const TSK_FS_FILE& file, std::string name, const TskVolume& volume) {
  FileEntry entry{.name = std::move(name)};
  if (file.meta == nullptr) return entry;
  const bool directory = file.meta->type == TSK_FS_META_TYPE_DIR;
  entry.size = directory || file.meta->size < 0 ? 0 : static_cast<std::uint64_t>(file.meta->size);
  entry.attributes = volume.kind == VolumeKind::Fat ? FatAttributes(file, volume.firstFatSlot) : kFileReadOnly;
  if (directory) entry.attributes |= kFileDirectory;
  entry.modified = std::max<std::time_t>(file.meta->mtime, 0);
  return entry;
}

// On ISO 9660 a plain name carries its version: "README.TXT;1".
std::string VisibleName(const TSK_FS_NAME& name, VolumeKind kind) {
  std::string text = name.name;
  if (kind == VolumeKind::Iso9660) text = text.substr(0, text.find(';'));
  return text;
}

class TskOpenedFile final : public OpenedFile {
 public:
  TskOpenedFile(std::shared_ptr<TskVolume> volume, TskFile file, FileEntry entry)
      : volume_(std::move(volume)), file_(std::move(file)), entry_(std::move(entry)) {}

  [[nodiscard]] const FileEntry& Entry() const override { return entry_; }

  [[nodiscard]] EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out, std::size_t& done) override {
    done = 0;
    if (entry_.IsDirectory()) return EFI_UNSUPPORTED;
    if (offset >= entry_.size || out.empty()) return EFI_SUCCESS;
    const std::size_t wanted = std::min<std::uint64_t>(out.size(), entry_.size - offset);
    const ssize_t read = tsk_fs_file_read(file_.get(), static_cast<TSK_OFF_T>(offset),
                                          reinterpret_cast<char*>(out.data()), wanted, TSK_FS_FILE_READ_FLAG_NONE);
    if (read < 0) return LastError();
    // A chain that ends before the size its entry tells holds no more than this.
    if (static_cast<std::size_t>(read) < wanted) return EFI_VOLUME_CORRUPTED;
    done = static_cast<std::size_t>(read);
    return EFI_SUCCESS;
  }

  [[nodiscard]] EFI_STATUS List(std::vector<FileEntry>& entries) override {
    entries.clear();
    if (!entry_.IsDirectory()) return EFI_UNSUPPORTED;
    const TskDirectory directory(tsk_fs_dir_open_meta(volume_->system.get(), file_->meta->addr));
    if (directory == nullptr) return LastError();
    const std::size_t count = std::min(tsk_fs_dir_getsize(directory.get()), kMaximumEntries);
    for (std::size_t i = 0; i < count; ++i) {
      const TSK_FS_NAME* name = tsk_fs_dir_get_name(directory.get(), i);
      if (name == nullptr || !IsShown(*name, *volume_->system)) continue;
      const TskFile member(tsk_fs_dir_get(directory.get(), i));
      if (member == nullptr || member->meta == nullptr) continue;
      entries.push_back(MakeEntry(*member, VisibleName(*name, volume_->kind), *volume_));
    }
    tsk_error_reset();
    return EFI_SUCCESS;
  }

  // The member of this directory with that name, long or short; EFI_NOT_FOUND when there is none.
  [[nodiscard]] EFI_STATUS Find(std::string_view wanted, TskFile& found, std::string& foundName) const {
    const TskDirectory directory(tsk_fs_dir_open_meta(volume_->system.get(), file_->meta->addr));
    if (directory == nullptr) return LastError();
    const std::size_t count = std::min(tsk_fs_dir_getsize(directory.get()), kMaximumEntries);
    for (std::size_t i = 0; i < count; ++i) {
      const TSK_FS_NAME* name = tsk_fs_dir_get_name(directory.get(), i);
      if (name == nullptr || !IsShown(*name, *volume_->system)) continue;
      const std::string visible = VisibleName(*name, volume_->kind);
      const bool shortMatch = name->shrt_name != nullptr && *name->shrt_name != '\0' &&
                              volume_->kind == VolumeKind::Fat && SameName(name->shrt_name, wanted);
      if (!SameName(visible, wanted) && !shortMatch) continue;
      found.reset(tsk_fs_file_open_meta(volume_->system.get(), nullptr, name->meta_addr));
      if (found == nullptr || found->meta == nullptr) return LastError();
      foundName = visible;
      return EFI_SUCCESS;
    }
    tsk_error_reset();
    return EFI_NOT_FOUND;
  }

 private:
  std::shared_ptr<TskVolume> volume_;
  TskFile file_;
  FileEntry entry_;
};

class TskFileSystem final : public FileSystemReader {
 public:
  explicit TskFileSystem(std::shared_ptr<TskVolume> volume) : volume_(std::move(volume)) {
    const TSK_FS_INFO& system = *volume_->system;
    info_.blockSize = system.block_size;
    info_.totalBytes = system.block_count * system.block_size;
    info_.label = volume_->kind == VolumeKind::Fat ? FatLabel() : IsoLabel();
  }

  [[nodiscard]] const VolumeInfo& Info() const override { return info_; }

  [[nodiscard]] EFI_STATUS Open(std::string_view path, std::unique_ptr<OpenedFile>& file) override {
    std::vector<std::string> components;
    if (!SplitPath(path, components)) return EFI_NOT_FOUND;
    TskFile current(tsk_fs_file_open_meta(volume_->system.get(), nullptr, volume_->system->root_inum));
    if (current == nullptr || current->meta == nullptr) return LastError();
    auto opened = Wrap(std::move(current), {});
    for (const std::string& component : components) {
      if (!opened->Entry().IsDirectory()) return EFI_NOT_FOUND;
      TskFile next;
      std::string name;
      if (const EFI_STATUS status = opened->Find(component, next, name); EFI_ERROR(status)) return status;
      opened = Wrap(std::move(next), std::move(name));
    }
    file = std::move(opened);
    return EFI_SUCCESS;
  }

 private:
  [[nodiscard]] std::unique_ptr<TskOpenedFile> Wrap(TskFile file, std::string name) const {
    FileEntry entry = MakeEntry(*file, std::move(name), *volume_);
    return std::make_unique<TskOpenedFile>(volume_, std::move(file), std::move(entry));
  }

  [[nodiscard]] std::string FatLabel() const {
    const TskDirectory root(tsk_fs_dir_open_meta(volume_->system.get(), volume_->system->root_inum));
    const std::size_t count = root == nullptr ? 0 : std::min(tsk_fs_dir_getsize(root.get()), kMaximumEntries);
    for (std::size_t i = 0; i < count; ++i) {
      const TSK_FS_NAME* name = tsk_fs_dir_get_name(root.get(), i);
      if (name == nullptr || name->name == nullptr || (name->flags & TSK_FS_NAME_FLAG_ALLOC) == 0) continue;
      const std::string_view text = name->name;
      if (IsLabel(text)) return WithoutTrailingBlanks(std::string(text.substr(0, text.size() - kLabelSuffix.size())));
    }
    tsk_error_reset();
    return {};
  }

  // ISO 9660, 8.4.7: 32 characters at offset 40 of the primary volume descriptor.
  [[nodiscard]] std::string IsoLabel() const {
    std::array<char, 32> text{};
    if (tsk_img_read(volume_->image.get(), 16 * 2048 + 40, text.data(), text.size()) != 32) return {};
    return WithoutTrailingBlanks(std::string(text.data(), strnlen(text.data(), text.size())));
  }

  std::shared_ptr<TskVolume> volume_;
  VolumeInfo info_;
};

}  // namespace

EFI_STATUS OpenFileSystem(const BlockSourcePtr& volume, std::unique_ptr<FileSystemReader>& reader) {
  auto opened = std::make_shared<TskVolume>();
  opened->kind = ProbeVolume(*volume);
  if (opened->kind == VolumeKind::None) {
    std::array<std::byte, 512> sector;
    return EFI_ERROR(volume->Read(0, sector)) ? EFI_DEVICE_ERROR : EFI_UNSUPPORTED;
  }
  opened->image = OpenTskImage(volume);
  if (opened->image == nullptr) return EFI_DEVICE_ERROR;
  const auto type = opened->kind == VolumeKind::Fat ? TSK_FS_TYPE_FAT_DETECT : TSK_FS_TYPE_ISO9660;
  if (opened->kind == VolumeKind::Fat) opened->firstFatSlot = FirstFatSlot(*opened->image);
  opened->system.reset(tsk_fs_open_img(opened->image.get(), 0, type));
  if (opened->system == nullptr) return LastError();
  reader = std::make_unique<TskFileSystem>(std::move(opened));
  return EFI_SUCCESS;
}

}  // namespace sim
