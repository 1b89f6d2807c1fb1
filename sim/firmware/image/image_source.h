// Where LoadImage finds the bytes for a device path (UEFI 2.10, 7.4.1): a memory range, a firmware volume's file, a
// file on a file system, or a device that hands out files.
#pragma once

#include <cstddef>
#include <vector>

#include "sim/firmware/machine.h"

namespace sim {

struct ImageBytes {
  EFI_STATUS status = EFI_NOT_FOUND;
  std::vector<std::byte> bytes;
  EFI_HANDLE device = nullptr;
  DevicePath whole;     // the full path: a short-form hard drive path is completed here
  DevicePath filePath;  // what is left of it behind the device's own path
};

// Reads the whole file. With the boot policy a path that begins with a hard drive node is looked up among the
// partitions (UEFI 2.10, 3.1.2). No more than kMaxImageSize bytes are read.
ImageBytes ReadImageFromPath(Machine& machine, const EFI_DEVICE_PATH_PROTOCOL* path, bool bootPolicy);

// The device that a path leads to, for an image whose bytes the caller of LoadImage brought along; the status and the
// bytes are not set.
ImageBytes LocateImageDevice(Machine& machine, const EFI_DEVICE_PATH_PROTOCOL* path);

}  // namespace sim
