// Graphics output (UEFI 2.10, 12.9) with one mode and a frame buffer that nobody looks at.
#pragma once

#include "platform/graphics_output.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"

namespace sim {

class DisplayDevice final : public DeviceObject {
 public:
  DisplayDevice(const DisplayController& controller, const BusContext& context);
  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(output_.protocol)}; }

 private:
  using Self = EFI_GRAPHICS_OUTPUT_PROTOCOL;
  static EFI_STATUS EFIAPI QueryMode(Self* self, UINT32 number, UINTN* size,
                                     EFI_GRAPHICS_OUTPUT_MODE_INFORMATION** information);
  static EFI_STATUS EFIAPI SetMode(Self* self, UINT32 number);
  static EFI_STATUS EFIAPI Blt(Self* self, EFI_GRAPHICS_OUTPUT_BLT_PIXEL* buffer,
                               EFI_GRAPHICS_OUTPUT_BLT_OPERATION operation, UINTN sourceX, UINTN sourceY,
                               UINTN destinationX, UINTN destinationY, UINTN width, UINTN height, UINTN delta);

  [[nodiscard]] bool Fits(UINTN x, UINTN y, UINTN width, UINTN height) const;

  BusContext context_;
  EFI_GRAPHICS_OUTPUT_MODE_INFORMATION information_{};
  EFI_GRAPHICS_OUTPUT_PROTOCOL_MODE mode_{};
  std::vector<EFI_GRAPHICS_OUTPUT_BLT_PIXEL> pixels_;  // made when first drawn on
  Backed<EFI_GRAPHICS_OUTPUT_PROTOCOL, DisplayDevice> output_;
};

}  // namespace sim
