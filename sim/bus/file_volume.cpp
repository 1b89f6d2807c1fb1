// Every opened file is an object of its volume until it is closed.
#include "sim/bus/file_volume.h"

#include <algorithm>
#include <cstring>

#include "sim/bus/utf_text.h"

namespace sim {
namespace {

constexpr std::size_t kMaximumNameLength = 4096;

EFI_TIME ToEfiTime(std::time_t time) {
  EFI_TIME out{};
  std::tm parts{};
  if (time == 0 || ::localtime_r(&time, &parts) == nullptr) return out;
  out.Year = static_cast<UINT16>(parts.tm_year + 1900);
  out.Month = static_cast<UINT8>(parts.tm_mon + 1);
  out.Day = static_cast<UINT8>(parts.tm_mday);
  out.Hour = static_cast<UINT8>(parts.tm_hour);
  out.Minute = static_cast<UINT8>(parts.tm_min);
  out.Second = static_cast<UINT8>(parts.tm_sec);
  out.TimeZone = 0x07FF;  // unspecified: FAT keeps local time
  return out;
}

// Copies a structure with the text that ends it, when the buffer holds them; else tells the size needed.
EFI_STATUS CopyWithText(std::span<const std::byte> head, std::u16string_view text, UINTN* size, VOID* buffer) {
  const std::size_t textSize = (text.size() + 1) * sizeof(CHAR16);
  const std::size_t needed = head.size() + textSize;
  if (*size < needed) {
    *size = needed;
    return EFI_BUFFER_TOO_SMALL;
  }
  if (buffer == nullptr) return EFI_INVALID_PARAMETER;
  *size = needed;
  auto* out = static_cast<std::byte*>(buffer);
  std::copy(head.begin(), head.end(), out);
  std::memcpy(out + head.size(), text.data(), text.size() * sizeof(CHAR16));
  std::memset(out + head.size() + text.size() * sizeof(CHAR16), 0, sizeof(CHAR16));
  return EFI_SUCCESS;
}

EFI_STATUS CopyFileInfo(const FileEntry& entry, UINTN* size, VOID* buffer) {
  const std::u16string name = Utf16OfText(entry.name);
  EFI_FILE_INFO info{};
  constexpr std::size_t kHead = offsetof(EFI_FILE_INFO, FileName);
  info.Size = kHead + (name.size() + 1) * sizeof(CHAR16);
  info.FileSize = entry.size;
  info.PhysicalSize = (entry.size + 511) / 512 * 512;
  info.CreateTime = info.LastAccessTime = info.ModificationTime = ToEfiTime(entry.modified);
  info.Attribute = entry.attributes;
  return CopyWithText({reinterpret_cast<const std::byte*>(&info), kHead}, name, size, buffer);
}

EFI_STATUS CopySystemInfo(const VolumeInfo& volume, UINTN* size, VOID* buffer) {
  const std::u16string label = Utf16OfText(volume.label);
  EFI_FILE_SYSTEM_INFO info{};
  constexpr std::size_t kHead = offsetof(EFI_FILE_SYSTEM_INFO, VolumeLabel);
  info.Size = kHead + (label.size() + 1) * sizeof(CHAR16);
  info.ReadOnly = TRUE;
  info.VolumeSize = volume.totalBytes;
  info.BlockSize = volume.blockSize;
  return CopyWithText({reinterpret_cast<const std::byte*>(&info), kHead}, label, size, buffer);
}

// A file name as a caller gives it; false when it does not end within a sane length.
bool NameFrom(const CHAR16* name, std::string& out) {
  std::size_t length = 0;
  while (length < kMaximumNameLength && name[length] != 0) ++length;
  if (length == kMaximumNameLength) return false;
  out = Utf8OfText({name, length});
  return true;
}

}  // namespace

class OpenFileHandle {
 public:
  OpenFileHandle(FileVolume& volume, std::unique_ptr<OpenedFile> file, std::string path);

  [[nodiscard]] EFI_FILE_PROTOCOL* Protocol() { return &file_.protocol; }

 private:
  static OpenFileHandle& Self(EFI_FILE_PROTOCOL* self) { return Backed<EFI_FILE_PROTOCOL, OpenFileHandle>::From(self); }
  [[nodiscard]] bool Gone() const { return !volume_.attached_; }

  static EFI_STATUS EFIAPI Open(EFI_FILE_PROTOCOL* self, EFI_FILE_PROTOCOL** opened, const CHAR16* name, UINT64 mode,
                                UINT64 attributes);
  static EFI_STATUS EFIAPI Close(EFI_FILE_PROTOCOL* self);
  static EFI_STATUS EFIAPI Delete(EFI_FILE_PROTOCOL* self);
  static EFI_STATUS EFIAPI Read(EFI_FILE_PROTOCOL* self, UINTN* size, VOID* buffer);
  static EFI_STATUS EFIAPI Write(EFI_FILE_PROTOCOL* self, UINTN* size, const VOID* buffer);
  static EFI_STATUS EFIAPI GetPosition(EFI_FILE_PROTOCOL* self, UINT64* position);
  static EFI_STATUS EFIAPI SetPosition(EFI_FILE_PROTOCOL* self, UINT64 position);
  static EFI_STATUS EFIAPI GetInfo(EFI_FILE_PROTOCOL* self, const EFI_GUID* type, UINTN* size, VOID* buffer);
  static EFI_STATUS EFIAPI SetInfo(EFI_FILE_PROTOCOL* self, const EFI_GUID* type, UINTN size, const VOID* buffer);
  static EFI_STATUS EFIAPI Flush(EFI_FILE_PROTOCOL* self);

  [[nodiscard]] EFI_STATUS ReadDirectory(UINTN* size, VOID* buffer);

  FileVolume& volume_;
  std::unique_ptr<OpenedFile> opened_;
  std::string path_;
  std::uint64_t position_ = 0;  // in a directory: the number of the next entry
  std::vector<FileEntry> entries_;
  bool listed_ = false;
  Backed<EFI_FILE_PROTOCOL, OpenFileHandle> file_;
};

OpenFileHandle::OpenFileHandle(FileVolume& volume, std::unique_ptr<OpenedFile> file, std::string path)
    : volume_(volume), opened_(std::move(file)), path_(std::move(path)) {
  file_.object = this;
  file_.protocol.Revision = EFI_FILE_PROTOCOL_REVISION;
  file_.protocol.Open = Open;
  file_.protocol.Close = Close;
  file_.protocol.Delete = Delete;
  file_.protocol.Read = Read;
  file_.protocol.Write = Write;
  file_.protocol.GetPosition = GetPosition;
  file_.protocol.SetPosition = SetPosition;
  file_.protocol.GetInfo = GetInfo;
  file_.protocol.SetInfo = SetInfo;
  file_.protocol.Flush = Flush;
}

EFI_STATUS EFIAPI OpenFileHandle::Open(EFI_FILE_PROTOCOL* self, EFI_FILE_PROTOCOL** opened, const CHAR16* name,
                                       UINT64 mode, UINT64) {
  if (self == nullptr || opened == nullptr || name == nullptr) return EFI_INVALID_PARAMETER;
  OpenFileHandle& file = Self(self);
  const UINT64 readWrite = EFI_FILE_MODE_READ | EFI_FILE_MODE_WRITE;
  if (mode != EFI_FILE_MODE_READ && mode != readWrite && mode != (readWrite | EFI_FILE_MODE_CREATE)) {
    return EFI_INVALID_PARAMETER;
  }
  if (file.Gone()) return EFI_NO_MEDIA;
  if (mode != EFI_FILE_MODE_READ) return EFI_WRITE_PROTECTED;
  std::string relative;
  if (!NameFrom(name, relative)) return EFI_INVALID_PARAMETER;
  return file.volume_.OpenPath(JoinPath(file.path_, relative), opened);
}

EFI_STATUS EFIAPI OpenFileHandle::Close(EFI_FILE_PROTOCOL* self) {
  OpenFileHandle& file = Self(self);
  file.volume_.Forget(&file);
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI OpenFileHandle::Delete(EFI_FILE_PROTOCOL* self) {
  (void)Close(self);
  return EFI_WARN_DELETE_FAILURE;
}

EFI_STATUS EFIAPI OpenFileHandle::Read(EFI_FILE_PROTOCOL* self, UINTN* size, VOID* buffer) {
  OpenFileHandle& file = Self(self);
  if (size == nullptr || (*size != 0 && buffer == nullptr)) return EFI_INVALID_PARAMETER;
  if (file.Gone()) return EFI_NO_MEDIA;
  const FileEntry& entry = file.opened_->Entry();
  if (entry.IsDirectory()) return file.ReadDirectory(size, buffer);
  if (file.position_ > entry.size) return EFI_DEVICE_ERROR;
  std::size_t done = 0;
  const EFI_STATUS status = file.opened_->Read(file.position_, {static_cast<std::byte*>(buffer), *size}, done);
  if (EFI_ERROR(status)) return status;
  file.position_ += done;
  *size = done;
  return EFI_SUCCESS;
}

EFI_STATUS OpenFileHandle::ReadDirectory(UINTN* size, VOID* buffer) {
  if (!listed_) {
    if (const EFI_STATUS status = opened_->List(entries_); EFI_ERROR(status)) return status;
    listed_ = true;
  }
  if (position_ >= entries_.size()) {
    *size = 0;
    return EFI_SUCCESS;
  }
  const EFI_STATUS status = CopyFileInfo(entries_[position_], size, buffer);
  if (!EFI_ERROR(status)) ++position_;
  return status;
}

EFI_STATUS EFIAPI OpenFileHandle::Write(EFI_FILE_PROTOCOL* self, UINTN* size, const VOID*) {
  OpenFileHandle& file = Self(self);
  if (file.Gone()) return EFI_NO_MEDIA;
  if (size != nullptr) *size = 0;
  return file.opened_->Entry().IsDirectory() ? EFI_UNSUPPORTED : EFI_WRITE_PROTECTED;
}

EFI_STATUS EFIAPI OpenFileHandle::GetPosition(EFI_FILE_PROTOCOL* self, UINT64* position) {
  OpenFileHandle& file = Self(self);
  if (position == nullptr) return EFI_INVALID_PARAMETER;
  if (file.opened_->Entry().IsDirectory()) return EFI_UNSUPPORTED;
  *position = file.position_;
  return file.Gone() ? EFI_NO_MEDIA : EFI_SUCCESS;
}

EFI_STATUS EFIAPI OpenFileHandle::SetPosition(EFI_FILE_PROTOCOL* self, UINT64 position) {
  OpenFileHandle& file = Self(self);
  if (file.Gone()) return EFI_NO_MEDIA;
  const FileEntry& entry = file.opened_->Entry();
  if (entry.IsDirectory() && position != 0) return EFI_UNSUPPORTED;
  // UEFI 2.10, 13.5.9: all ones is the end of the file.
  file.position_ = position == UINT64_MAX ? entry.size : position;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI OpenFileHandle::GetInfo(EFI_FILE_PROTOCOL* self, const EFI_GUID* type, UINTN* size, VOID* buffer) {
  OpenFileHandle& file = Self(self);
  if (type == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  if (file.Gone()) return EFI_NO_MEDIA;
  if (*type == gEfiFileInfoGuid) return CopyFileInfo(file.opened_->Entry(), size, buffer);
  const VolumeInfo& volume = file.volume_.reader_->Info();
  if (*type == gEfiFileSystemInfoGuid) return CopySystemInfo(volume, size, buffer);
  if (*type == gEfiFileSystemVolumeLabelInfoIdGuid) return CopyWithText({}, Utf16OfText(volume.label), size, buffer);
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI OpenFileHandle::SetInfo(EFI_FILE_PROTOCOL* self, const EFI_GUID* type, UINTN, const VOID*) {
  if (type == nullptr) return EFI_INVALID_PARAMETER;
  const bool known =
      *type == gEfiFileInfoGuid || *type == gEfiFileSystemInfoGuid || *type == gEfiFileSystemVolumeLabelInfoIdGuid;
  if (!known) return EFI_UNSUPPORTED;
  return Self(self).Gone() ? EFI_NO_MEDIA : EFI_WRITE_PROTECTED;
}

EFI_STATUS EFIAPI OpenFileHandle::Flush(EFI_FILE_PROTOCOL* self) {
  return Self(self).Gone() ? EFI_NO_MEDIA : EFI_WRITE_PROTECTED;
}

FileVolume::FileVolume(Opener opener) : opener_(std::move(opener)) {
  system_.object = this;
  system_.protocol = {.Revision = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_REVISION, .OpenVolume = OpenVolume};
}

FileVolume::~FileVolume() = default;

EFI_STATUS EFIAPI FileVolume::OpenVolume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* self, EFI_FILE_PROTOCOL** root) {
  if (self == nullptr || root == nullptr) return EFI_INVALID_PARAMETER;
  FileVolume& volume = Backed<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL, FileVolume>::From(self);
  if (!volume.attached_) return EFI_NO_MEDIA;
  if (volume.reader_ == nullptr) {
    if (const EFI_STATUS status = volume.opener_(volume.reader_); EFI_ERROR(status)) return status;
  }
  return volume.OpenPath("\\", root);
}

EFI_STATUS FileVolume::OpenPath(const std::string& path, EFI_FILE_PROTOCOL** file) {
  std::unique_ptr<OpenedFile> opened;
  if (const EFI_STATUS status = reader_->Open(path, opened); EFI_ERROR(status)) return status;
  files_.push_back(std::make_unique<OpenFileHandle>(*this, std::move(opened), path));
  *file = files_.back()->Protocol();
  return EFI_SUCCESS;
}

void FileVolume::Forget(const OpenFileHandle* file) {
  files_.remove_if([&](const std::unique_ptr<OpenFileHandle>& held) { return held.get() == file; });
}

}  // namespace sim
