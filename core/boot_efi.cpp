// Booting a UEFI option.
#include "core/boot.h"
#include "core/load_image.h"

namespace bds {
namespace {

#pragma pack(push, 1)
struct DefaultLoaderNode {
  EFI_DEVICE_PATH_PROTOCOL Header;
  CHAR16 PathName[22];
};
#pragma pack(pop)
static_assert(sizeof(DefaultLoaderNode) == 48);

// UEFI 2.10, 3.5.1.1: the loader of a removable medium on this processor.
constexpr DefaultLoaderNode kDefaultLoader{NodeHeader<DefaultLoaderNode>(MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP),
                                           u"\\EFI\\BOOT\\BOOTX64.EFI"};

EFI_STATUS LoadOwnOrDefault(LoadedImage& image, const DevicePath* path) {
  const EFI_STATUS status = image.Load(path);
  if (!EFI_ERROR(status)) {
    return status;
  }
  const auto extended = AppendNode(path, &kDefaultLoader.Header);
  return extended ? image.Load(extended.get()) : status;
}

}  // namespace

EFI_STATUS BootEfiOption(const DevicePath* path, UINT16 number, Bytes optionalData) {
  LoadedImage image;
  EFI_STATUS status = LoadOwnOrDefault(image, path);
  if (EFI_ERROR(status)) {
    return status;
  }
  // A copy, since images read their load options as aligned UTF-16 text.
  const PoolBuffer options = CopyBytes(optionalData);
  if (options.Data) {
    image.SetLoadOptions(options.Data.get(), options.Size);
  }
  SignalReadyToBoot(number);
  const bool staysResident = image.IsDriver();
  status = image.Start();
  if (staysResident && !EFI_ERROR(status)) {
    image.SetLoadOptions(nullptr, 0);
  }
  return status;
}

}  // namespace bds
