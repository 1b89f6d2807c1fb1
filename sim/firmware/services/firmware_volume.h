// A firmware volume as the firmware volume 2 protocol shows it (PI 1.7, volume 3, 3.4): files by GUID, each with a
// PE32 section and a name, read-only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/boot_services.h"
#include "platform/firmware_volume2.h"

namespace sim {

struct FirmwareFile {
  EFI_GUID name{};
  EFI_FV_FILETYPE type = EFI_FV_FILETYPE_APPLICATION;
  std::u16string userInterfaceName;  // empty: no such section
  std::vector<std::byte> image;      // the PE32 section; empty: no such section
};

class FirmwareVolume {
 public:
  // Buffers that callers ask the volume to allocate come from these boot services' pool.
  explicit FirmwareVolume(EFI_BOOT_SERVICES* services);
  FirmwareVolume(const FirmwareVolume&) = delete;
  FirmwareVolume& operator=(const FirmwareVolume&) = delete;

  // False when a file of that name is there already.
  bool Add(FirmwareFile file);
  EFI_FIRMWARE_VOLUME2_PROTOCOL* Protocol() { return &interface_.protocol; }
  const std::vector<FirmwareFile>& Files() const { return files_; }
  const FirmwareFile* Find(const EFI_GUID& name) const;

 private:
  struct Interface {
    EFI_FIRMWARE_VOLUME2_PROTOCOL protocol;
    FirmwareVolume* self;
  };
  struct Calls;
  EFI_STATUS Deliver(std::span<const std::byte> data, VOID** buffer, UINTN* size) const;

  Interface interface_;
  EFI_BOOT_SERVICES* services_;
  std::vector<FirmwareFile> files_;
};

}  // namespace sim
