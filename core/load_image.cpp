#include "core/load_image.h"

#include "support/protocols.h"

namespace bds {

EFI_STATUS LoadedImage::Load(const DevicePath* path) {
  Unload();
  const EFI_STATUS status =
      BootServices()->LoadImage(TRUE, gServices.ImageHandle, const_cast<DevicePath*>(path), nullptr, 0, &handle_);
  if (status == EFI_SECURITY_VIOLATION) {
    Unload();  // the firmware hands out the image, but only to be started once somebody trusts it
    return status;
  }
  if (EFI_ERROR(status)) {
    handle_ = nullptr;
    return status;
  }
  interface_ = HandleProtocol<EFI_LOADED_IMAGE_PROTOCOL>(handle_);
  return EFI_SUCCESS;
}

void LoadedImage::SetLoadOptions(void* options, UINTN size) {
  if (interface_ != nullptr) {
    interface_->LoadOptions = options;
    interface_->LoadOptionsSize = static_cast<UINT32>(size);
  }
}

EFI_STATUS LoadedImage::Start() {
  EFI_HANDLE image = std::exchange(handle_, nullptr);
  return BootServices()->StartImage(image, nullptr, nullptr);
}

void LoadedImage::Unload() {
  interface_ = nullptr;
  if (EFI_HANDLE image = std::exchange(handle_, nullptr); image != nullptr) {
    static_cast<void>(BootServices()->UnloadImage(image));
  }
}

}  // namespace bds
