// Owner of an opened file or directory.
#pragma once

#include <utility>

#include "platform/simple_file_system.h"

namespace bds {

class File {
 public:
  File() = default;
  explicit File(EFI_FILE_PROTOCOL* file) : file_(file) {}
  File(File&& other) noexcept : file_(std::exchange(other.file_, nullptr)) {}
  File& operator=(File&& other) noexcept {
    Close();
    file_ = std::exchange(other.file_, nullptr);
    return *this;
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { Close(); }

  EFI_FILE_PROTOCOL* get() const { return file_; }
  explicit operator bool() const { return file_ != nullptr; }

  // Opens the root directory of a volume in place of what is held.
  [[nodiscard]] EFI_STATUS OpenVolume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume) {
    Close();
    return Keep(volume->OpenVolume(volume, &file_));
  }
  // Opens an existing file below this directory for reading.
  [[nodiscard]] EFI_STATUS OpenForReading(const CHAR16* path, File& opened) const {
    opened.Close();
    return opened.Keep(file_->Open(file_, &opened.file_, const_cast<CHAR16*>(path), EFI_FILE_MODE_READ, 0));
  }

 private:
  EFI_STATUS Keep(EFI_STATUS status) {
    if (EFI_ERROR(status)) {
      file_ = nullptr;
    }
    return status;
  }
  void Close() {
    if (EFI_FILE_PROTOCOL* file = std::exchange(file_, nullptr); file != nullptr) {
      static_cast<void>(file->Close(file));
    }
  }

  EFI_FILE_PROTOCOL* file_ = nullptr;
};

}  // namespace bds
