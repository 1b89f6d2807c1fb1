// Takes the devices out of the device list that must not be offered. A filter that cannot decide keeps the device.
#include "bootopt/steps.h"
#include "platform/setup_variable.h"
#include "support/debug_print.h"
#include "support/file.h"
#include "support/protocols.h"
#include "support/variables.h"

namespace bds {
namespace {

// TRUE: the device is removed.
using DeviceFilter = bool (*)(const BOOT_DEVICE& device);

// A partition of this type carries its GUID as a protocol (UEFI 2.10, 13.3.2).
constexpr EFI_GUID kEspPartitionTypeGuid{0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
// UEFI 2.10, 3.5.1.1: what a removable medium for x64 boots.
constexpr CHAR16 kDefaultLoaderPath[] = u"\\EFI\\BOOT\\BOOTX64.EFI";

constexpr UINT8 kBootModeUefiOnly = 2;
constexpr UINT8 kBootModeLegacyOnly = 3;

bool KeepEveryDevice(const BOOT_DEVICE&) { return false; }

// Removes file systems that hold no bootable image.
bool InvalidUefiHddFilter(const BOOT_DEVICE& device) {
  if (device.DeviceHandle == nullptr || device.BbsEntry != nullptr) {
    DebugPrint("INVALID_HANDLE or BbsEntry != NULL\n");
    return false;
  }
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume = nullptr;
  EFI_STATUS status = OpenOn(device.DeviceHandle, volume);
  if (EFI_ERROR(status)) {
    DebugPrint("Simple File System Not Found - %r\n", status);
    return false;
  }
  if (HasProtocol(device.DeviceHandle, kEspPartitionTypeGuid)) {
    DebugPrint("ESP Protocol Found\n");
    return false;
  }
  File root;
  status = root.OpenVolume(volume);
  if (EFI_ERROR(status)) {
    DebugPrint("Open Volume Failed - %r\n", status);
    return false;
  }
  File loader;
  status = root.OpenForReading(kDefaultLoaderPath, loader);
  if (EFI_ERROR(status)) {
    DebugPrint("RemoveInvalidUefiHddBootDevices: Remove UEFI HDD = %r\n", status);
    return true;
  }
  return false;
}

// Removes the kind of device that the boot mode does not boot.
bool BootModeFilter(const BOOT_DEVICE& device) {
  std::byte data[kVeyraNvramDataSize] = {};
  UINTN size = 0;
  if (EFI_ERROR(ReadVariableInto(kVeyraNvramDataName, kVeyraNvramDataGuid, data, size)) || size <= kVeyraBootMode) {
    return false;
  }
  const auto bootMode = static_cast<UINT8>(data[kVeyraBootMode]);
  const bool legacy = device.BbsEntry != nullptr;
  return (bootMode == kBootModeUefiOnly && legacy) || (bootMode == kBootModeLegacyOnly && !legacy);
}

constexpr DeviceFilter kDeviceFilters[] = {
    KeepEveryDevice,
    InvalidUefiHddFilter,
    BootModeFilter,
};

bool IsFilteredOut(const BOOT_DEVICE& device) {
  for (const DeviceFilter filter : kDeviceFilters) {
    if (filter(device)) {
      return true;
    }
  }
  return false;
}

}  // namespace

void FilterBootDeviceList() {
  for (BOOT_DEVICE* device = BootDeviceList.First; device != nullptr;) {
    BOOT_DEVICE* next = device->Next;
    if (IsFilteredOut(*device)) {
      DebugPrint("FilterBootDeviceList:Deleting BbsIndex:%d from DeviceList\n", device->BbsIndex);
      DeleteBootDevice(BootDeviceList, device);
    }
    device = next;
  }
}

}  // namespace bds
