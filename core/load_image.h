// An image from loading to its start.
#pragma once

#include "platform/loaded_image.h"
#include "support/device_path.h"

namespace bds {

// Owns a loaded image until it is started; one that is never started is unloaded.
class LoadedImage {
 public:
  LoadedImage() = default;
  LoadedImage(const LoadedImage&) = delete;
  LoadedImage& operator=(const LoadedImage&) = delete;
  ~LoadedImage() { Unload(); }

  // Loads from the device, by boot policy, with the driver as the parent. An image that the firmware's security policy
  // holds back counts as not loaded and is unloaded at once.
  [[nodiscard]] EFI_STATUS Load(const DevicePath* path);

  // The bytes stay the caller's and must be valid while the image runs; ignored without a loaded image protocol.
  void SetLoadOptions(void* options, UINTN size);

  // Runs the image. Afterwards it belongs to the firmware: an application, and a driver that failed, are unloaded
  // already.
  [[nodiscard]] EFI_STATUS Start();

  // True when the image stays in memory behind a successful start.
  bool IsDriver() const { return interface_ != nullptr && interface_->ImageCodeType != EfiLoaderCode; }

 private:
  void Unload();

  EFI_HANDLE handle_ = nullptr;
  EFI_LOADED_IMAGE_PROTOCOL* interface_ = nullptr;
};

}  // namespace bds
