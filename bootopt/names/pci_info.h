// What PCI configuration space says of the function behind a device path.
#pragma once

#include "platform/device_path.h"

namespace bds {

struct PCI_DEVICE_INFO {
  UINTN Bus = 0;
  UINTN Device = 0;
  UINTN Function = 0;
  UINT16 VendorId = 0;
  const char* ClassName = nullptr;
  const char* SubClassName = nullptr;
  const char* InterfaceName = nullptr;
  const char* VendorName = nullptr;  // null when the vendor has no name
};
// Of the function nearest to the device path's end.
[[nodiscard]] EFI_STATUS GetPciDeviceInfo(const EFI_DEVICE_PATH_PROTOCOL* path, PCI_DEVICE_INFO& info);

}  // namespace bds
