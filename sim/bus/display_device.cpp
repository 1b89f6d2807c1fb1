// Only block transfers reach the pixels: the mode offers no linear frame buffer.
#include "sim/bus/display_device.h"

#include <algorithm>
#include <cstring>

namespace sim {

DisplayDevice::DisplayDevice(const DisplayController& controller, const BusContext& context) : context_(context) {
  information_.HorizontalResolution = controller.width;
  information_.VerticalResolution = controller.height;
  information_.PixelFormat = PixelBltOnly;
  information_.PixelsPerScanLine = controller.width;
  mode_ = {.MaxMode = 1,
           .Mode = 0,
           .Info = &information_,
           .SizeOfInfo = sizeof information_,
           .FrameBufferBase = 0,
           .FrameBufferSize = 0};
  output_.object = this;
  output_.protocol = {.QueryMode = QueryMode, .SetMode = SetMode, .Blt = Blt, .Mode = &mode_};
}

EFI_STATUS EFIAPI DisplayDevice::QueryMode(Self* self, UINT32 number, UINTN* size,
                                           EFI_GRAPHICS_OUTPUT_MODE_INFORMATION** information) {
  const DisplayDevice& display = Backed<Self, DisplayDevice>::From(self);
  if (size == nullptr || information == nullptr || number >= display.mode_.MaxMode) return EFI_INVALID_PARAMETER;
  void* copy = display.context_.allocatePool(sizeof display.information_);
  if (copy == nullptr) return EFI_OUT_OF_RESOURCES;
  std::memcpy(copy, &display.information_, sizeof display.information_);
  *size = sizeof display.information_;
  *information = static_cast<EFI_GRAPHICS_OUTPUT_MODE_INFORMATION*>(copy);
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI DisplayDevice::SetMode(Self* self, UINT32 number) {
  DisplayDevice& display = Backed<Self, DisplayDevice>::From(self);
  if (number >= display.mode_.MaxMode) return EFI_UNSUPPORTED;
  display.pixels_.clear();  // a mode begins with a cleared screen
  return EFI_SUCCESS;
}

bool DisplayDevice::Fits(UINTN x, UINTN y, UINTN width, UINTN height) const {
  return width <= information_.HorizontalResolution && x <= information_.HorizontalResolution - width &&
         height <= information_.VerticalResolution && y <= information_.VerticalResolution - height;
}

EFI_STATUS EFIAPI DisplayDevice::Blt(Self* self, EFI_GRAPHICS_OUTPUT_BLT_PIXEL* buffer,
                                     EFI_GRAPHICS_OUTPUT_BLT_OPERATION operation, UINTN sourceX, UINTN sourceY,
                                     UINTN destinationX, UINTN destinationY, UINTN width, UINTN height, UINTN delta) {
  DisplayDevice& display = Backed<Self, DisplayDevice>::From(self);
  const bool fromVideo = operation == EfiBltVideoToBltBuffer || operation == EfiBltVideoToVideo;
  const bool toVideo = operation != EfiBltVideoToBltBuffer;
  if (operation >= EfiGraphicsOutputBltOperationMax || width == 0 || height == 0) return EFI_INVALID_PARAMETER;
  if (operation != EfiBltVideoToVideo && buffer == nullptr) return EFI_INVALID_PARAMETER;
  if (fromVideo && !display.Fits(sourceX, sourceY, width, height)) return EFI_INVALID_PARAMETER;
  if (toVideo && !display.Fits(destinationX, destinationY, width, height)) return EFI_INVALID_PARAMETER;
  const UINTN screenWidth = display.information_.HorizontalResolution;
  display.pixels_.resize(screenWidth * display.information_.VerticalResolution);
  const UINTN bufferWidth = delta == 0 ? width : delta / sizeof *buffer;
  const std::vector<EFI_GRAPHICS_OUTPUT_BLT_PIXEL> before =
      operation == EfiBltVideoToVideo ? display.pixels_ : std::vector<EFI_GRAPHICS_OUTPUT_BLT_PIXEL>{};
  for (UINTN row = 0; row < height; ++row) {
    auto* screen = display.pixels_.data() + (destinationY + row) * screenWidth + destinationX;
    const UINTN onScreen = (sourceY + row) * screenWidth + sourceX;
    switch (operation) {
      case EfiBltVideoFill:
        std::fill_n(screen, width, *buffer);
        break;
      case EfiBltVideoToBltBuffer:
        std::copy_n(display.pixels_.data() + onScreen, width,
                    buffer + (destinationY + row) * bufferWidth + destinationX);
        break;
      case EfiBltBufferToVideo:
        std::copy_n(buffer + (sourceY + row) * bufferWidth + sourceX, width, screen);
        break;
      default:
        std::copy_n(before.data() + onScreen, width, screen);
        break;
    }
  }
  return EFI_SUCCESS;
}

}  // namespace sim
