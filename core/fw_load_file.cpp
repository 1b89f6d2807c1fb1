// The firmware load-file handle: applications that lie in a firmware volume, the shell first of all, are booted
// through it.
#include "bootopt/boot_option.h"
#include "core/state.h"
#include "core/steps.h"
#include "platform/firmware_volume2.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr EFI_GUID kShellFile{0x7C04A583, 0x9E3E, 0x4F1C, {0xAD, 0x65, 0xE0, 0x52, 0x68, 0xD0, 0xB4, 0xD1}};

// The file that the path names, or the shell when there is no path and the boot policy may choose.
EFI_STATUS FileOfPath(const DevicePath* path, bool bootPolicy, EFI_GUID& file) {
  if (path == nullptr || IsEnd(path)) {
    file = kShellFile;
    return bootPolicy ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
  }
  if (!IsNode(path, MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP) ||
      NodeLength(path) < sizeof(MEDIA_FW_VOL_FILEPATH_DEVICE_PATH)) {
    return EFI_INVALID_PARAMETER;
  }
  file = LoadUnaligned<MEDIA_FW_VOL_FILEPATH_DEVICE_PATH>(path).FvFileName;
  return EFI_SUCCESS;
}

EFI_STATUS ReadFromVolume(EFI_HANDLE handle, const EFI_GUID& file, void* buffer, UINTN& size) {
  EFI_FIRMWARE_VOLUME2_PROTOCOL* volume = nullptr;
  if (const EFI_STATUS status = OpenOn(handle, volume); EFI_ERROR(status)) {
    return status;
  }
  UINT32 authentication = 0;
  return volume->ReadSection(volume, &file, EFI_SECTION_PE32, 0, &buffer, &size, &authentication);
}

// The volume allocates a buffer of its own when it is given none, so a caller that only asks for the size gets one
// byte to fill that nobody looks at.
EFI_STATUS ReadFromVolumes(const EFI_GUID& file, UINTN& size, void* buffer) {
  std::byte ignored{};
  const bool sizeOnly = size == 0;
  const UINTN room = sizeOnly ? 1 : size;
  EFI_STATUS status = EFI_NOT_FOUND;
  for (EFI_HANDLE volume : gCore.FirmwareVolumes) {
    UINTN found = room;
    status = ReadFromVolume(volume, file, sizeOnly ? &ignored : buffer, found);
    if (!EFI_ERROR(status)) {
      size = found;
      return status == EFI_WARN_BUFFER_TOO_SMALL || sizeOnly ? EFI_BUFFER_TOO_SMALL : status;
    }
  }
  return status;
}

EFI_STATUS EFIAPI LoadFile(EFI_LOAD_FILE_PROTOCOL*, EFI_DEVICE_PATH_PROTOCOL* path, BOOLEAN bootPolicy, UINTN* size,
                           VOID* buffer) {
  EFI_GUID file{};
  if (size == nullptr || (*size != 0 && buffer == nullptr) || EFI_ERROR(FileOfPath(path, bootPolicy != FALSE, file))) {
    return EFI_INVALID_PARAMETER;
  }
  return ReadFromVolumes(file, *size, buffer);
}

}  // namespace

EFI_STATUS InstallFwLoadFileProtocol() {
  gCore.FwLoadFile.LoadFile = LoadFile;
  gCore.FwLoadFilePath = {{NodeHeader<VENDOR_DEVICE_PATH>(MEDIA_DEVICE_PATH, MEDIA_VENDOR_DP), kBuiltInApplicationGuid},
                          kEndEntireNode};
  EFI_HANDLE handle = nullptr;
  const EFI_STATUS status = BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>,
                                                                     EFI_NATIVE_INTERFACE, &gCore.FwLoadFilePath);
  if (EFI_ERROR(status)) {
    return status;
  }
  return BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<EFI_LOAD_FILE_PROTOCOL>, EFI_NATIVE_INTERFACE,
                                                  &gCore.FwLoadFile);
}

}  // namespace bds
