// The simple file system and file protocols (UEFI 2.10, 13.4 and 13.5) over a file system reader, read-only.
#pragma once

#include <functional>
#include <list>

#include "platform/simple_file_system.h"
#include "sim/bus/device_object.h"
#include "sim/storage/file_system.h"

namespace sim {

class OpenFileHandle;

class FileVolume final : public DeviceObject {
 public:
  // Opens the file system; called at the first OpenVolume, and again as long as it fails.
  using Opener = std::function<EFI_STATUS(std::unique_ptr<FileSystemReader>&)>;

  explicit FileVolume(Opener opener);
  ~FileVolume() override;

  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(system_.protocol)}; }

  // Files that are still open answer EFI_NO_MEDIA to everything but Close from here on.
  [[nodiscard]] bool Retire() override {
    attached_ = false;
    return !files_.empty();
  }
  // Files that nobody closed yet.
  [[nodiscard]] std::size_t OpenFiles() const { return files_.size(); }

 private:
  friend class OpenFileHandle;

  static EFI_STATUS EFIAPI OpenVolume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* self, EFI_FILE_PROTOCOL** root);

  [[nodiscard]] EFI_STATUS OpenPath(const std::string& path, EFI_FILE_PROTOCOL** file);
  void Forget(const OpenFileHandle* file);

  Opener opener_;
  std::unique_ptr<FileSystemReader> reader_;
  std::list<std::unique_ptr<OpenFileHandle>> files_;
  bool attached_ = true;
  Backed<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL, FileVolume> system_;
};

}  // namespace sim
