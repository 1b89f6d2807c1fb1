// The volume's calls. A buffer of the caller's that is too small is filled as far as it goes, with a warning; a null
// buffer is allocated for the caller.
#include "sim/firmware/services/firmware_volume.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

constexpr UINT64 kReadStatus = 0x4;        // EFI_FV2_READ_STATUS
constexpr UINT64 kReadCapability = 0x2;    // EFI_FV2_READ_ENABLE_CAP
constexpr std::size_t kSectionHeader = 4;  // size in three bytes, then the type

std::span<const std::byte> NameBytes(const FirmwareFile& file) {
  return std::as_bytes(std::span(file.userInterfaceName.c_str(), file.userInterfaceName.size() + 1));
}

void AppendSection(std::vector<std::byte>& out, EFI_SECTION_TYPE type, std::span<const std::byte> data) {
  out.resize((out.size() + 3) & ~std::size_t{3});
  const std::size_t size = kSectionHeader + data.size();
  for (int i = 0; i < 3; ++i) {
    out.push_back(static_cast<std::byte>(size >> (8 * i)));
  }
  out.push_back(static_cast<std::byte>(type));
  out.insert(out.end(), data.begin(), data.end());
}

// The file as its sections, one behind the other on four-byte boundaries.
std::vector<std::byte> Sections(const FirmwareFile& file) {
  std::vector<std::byte> out;
  if (!file.image.empty()) {
    AppendSection(out, EFI_SECTION_PE32, file.image);
  }
  if (!file.userInterfaceName.empty()) {
    AppendSection(out, EFI_SECTION_USER_INTERFACE, NameBytes(file));
  }
  return out;
}

}  // namespace

bool FirmwareVolume::Add(FirmwareFile file) {
  if (Find(file.name) != nullptr) {
    return false;
  }
  files_.push_back(std::move(file));
  return true;
}

const FirmwareFile* FirmwareVolume::Find(const EFI_GUID& name) const {
  const auto found =
      std::find_if(files_.begin(), files_.end(), [&](const FirmwareFile& each) { return each.name == name; });
  return found != files_.end() ? &*found : nullptr;
}

EFI_STATUS FirmwareVolume::Deliver(std::span<const std::byte> data, VOID** buffer, UINTN* size) const {
  if (*buffer == nullptr) {
    const EFI_STATUS status = services_->AllocatePool(EfiBootServicesData, data.size(), buffer);
    if (EFI_ERROR(status)) {
      return status;
    }
    *size = data.size();
  }
  const UINTN room = *size;
  *size = data.size();
  std::memcpy(*buffer, data.data(), std::min<std::size_t>(room, data.size()));
  return room < data.size() ? EFI_WARN_BUFFER_TOO_SMALL : EFI_SUCCESS;
}

struct FirmwareVolume::Calls {
  static FirmwareVolume& Of(const EFI_FIRMWARE_VOLUME2_PROTOCOL* interface) {
    return *reinterpret_cast<const Interface*>(interface)->self;
  }

  static EFI_STATUS EFIAPI GetVolumeAttributes(const EFI_FIRMWARE_VOLUME2_PROTOCOL*, EFI_FV_ATTRIBUTES* attributes) {
    if (attributes == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *attributes = kReadStatus | kReadCapability;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI SetVolumeAttributes(const EFI_FIRMWARE_VOLUME2_PROTOCOL*, EFI_FV_ATTRIBUTES*) {
    return EFI_UNSUPPORTED;
  }

  static EFI_STATUS EFIAPI ReadFile(const EFI_FIRMWARE_VOLUME2_PROTOCOL* interface, const EFI_GUID* name, VOID** buffer,
                                    UINTN* size, EFI_FV_FILETYPE* type, EFI_FV_FILE_ATTRIBUTES* attributes,
                                    UINT32* authentication) {
    if (name == nullptr || size == nullptr || type == nullptr || attributes == nullptr || authentication == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const FirmwareVolume& self = Of(interface);
    const FirmwareFile* file = self.Find(*name);
    if (file == nullptr) {
      return EFI_NOT_FOUND;
    }
    *type = file->type;
    *attributes = 0;
    *authentication = 0;
    const auto sections = Sections(*file);
    if (buffer == nullptr) {
      *size = sections.size();  // only the size was asked for
      return EFI_SUCCESS;
    }
    return self.Deliver(sections, buffer, size);
  }

  static EFI_STATUS EFIAPI ReadSection(const EFI_FIRMWARE_VOLUME2_PROTOCOL* interface, const EFI_GUID* name,
                                       EFI_SECTION_TYPE type, UINTN instance, VOID** buffer, UINTN* size,
                                       UINT32* authentication) {
    if (name == nullptr || buffer == nullptr || size == nullptr || authentication == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const FirmwareVolume& self = Of(interface);
    const FirmwareFile* file = self.Find(*name);
    if (file == nullptr || instance != 0) {
      return EFI_NOT_FOUND;
    }
    *authentication = 0;
    if (type == EFI_SECTION_ALL) {
      return self.Deliver(Sections(*file), buffer, size);
    }
    if (type == EFI_SECTION_PE32 && !file->image.empty()) {
      return self.Deliver(file->image, buffer, size);
    }
    if (type == EFI_SECTION_USER_INTERFACE && !file->userInterfaceName.empty()) {
      return self.Deliver(NameBytes(*file), buffer, size);
    }
    return EFI_NOT_FOUND;
  }

  static EFI_STATUS EFIAPI WriteFile(const EFI_FIRMWARE_VOLUME2_PROTOCOL*, UINT32, UINT32, EFI_FV_WRITE_FILE_DATA*) {
    return EFI_WRITE_PROTECTED;
  }

  // The key is the number of files walked past; zero starts over.
  static EFI_STATUS EFIAPI GetNextFile(const EFI_FIRMWARE_VOLUME2_PROTOCOL* interface, VOID* key, EFI_FV_FILETYPE* type,
                                       EFI_GUID* name, EFI_FV_FILE_ATTRIBUTES* attributes, UINTN* size) {
    if (key == nullptr || type == nullptr || name == nullptr || attributes == nullptr || size == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const FirmwareVolume& self = Of(interface);
    std::uint64_t at = 0;
    std::memcpy(&at, key, sizeof(at));
    for (; at < self.files_.size(); ++at) {
      const FirmwareFile& file = self.files_[at];
      if (*type != EFI_FV_FILETYPE_ALL && *type != file.type) {
        continue;
      }
      *type = file.type;
      *name = file.name;
      *attributes = 0;
      *size = Sections(file).size();
      const std::uint64_t next = at + 1;
      std::memcpy(key, &next, sizeof(next));
      return EFI_SUCCESS;
    }
    return EFI_NOT_FOUND;
  }

  static EFI_STATUS EFIAPI GetInfo(const EFI_FIRMWARE_VOLUME2_PROTOCOL*, const EFI_GUID*, UINTN*, VOID*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI SetInfo(const EFI_FIRMWARE_VOLUME2_PROTOCOL*, const EFI_GUID*, UINTN, const VOID*) {
    return EFI_UNSUPPORTED;
  }
};

FirmwareVolume::FirmwareVolume(EFI_BOOT_SERVICES* services)
    : interface_{{Calls::GetVolumeAttributes, Calls::SetVolumeAttributes, Calls::ReadFile, Calls::ReadSection,
                  Calls::WriteFile, Calls::GetNextFile, sizeof(std::uint64_t), nullptr, Calls::GetInfo, Calls::SetInfo},
                 this},
      services_(services) {}

}  // namespace sim
