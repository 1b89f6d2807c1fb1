// The tests that decide whether one device path instance designates a device of this boot.
#pragma once

#include <array>

#include "bootopt/boot_lists.h"
#include "support/device_path.h"

namespace bds {

// instance is one instance, ended by an end-of-entire-path node. A test that cannot obtain what it needs answers false.
using DevicePathTest = bool (*)(const DevicePath* instance, const BOOT_DEVICE& device);

// All tests, in the order in which they are asked, and their names in the same order with four blanks behind them.
inline constexpr UINTN kDevicePathTestCount = 7;
extern const std::array<DevicePathTest, kDevicePathTestCount> kDevicePathTests;
extern const std::array<const char*, kDevicePathTestCount + 1> kDevicePathTestNames;

// True when one of the tests accepts the instance for the device.
[[nodiscard]] bool DesignatesDevice(const DevicePath* instance, const BOOT_DEVICE& device);

// The instance is the path of the device's handle, at most with a file behind it.
[[nodiscard]] bool LocateDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device);
// The last node of the handle's path when the handle is a partition's. EFI_NOT_FOUND and null when it is not; any other
// error when the handle did not let itself be asked.
[[nodiscard]] EFI_STATUS FindPartitionNode(EFI_HANDLE handle, const DevicePath*& node);
// What the tests ask a device's handle for, found out once for all options that it is compared with.
[[nodiscard]] DEVICE_PLACE FindDevicePlace(EFI_HANDLE handle);
// The instance begins with the partition of the device's handle, known by number and signature.
[[nodiscard]] bool PartitionDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device);
// The instance begins with the node for any USB device, and the device is on the USB bus.
[[nodiscard]] bool UsbClassDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device);
// The instance begins with a BBS node of the device's type.
[[nodiscard]] bool BbsDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device);
// The instance begins with the legacy location node of the device's BBS entry.
[[nodiscard]] bool NuvBbsDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device);
// The instance begins with the device name node that holds the device's identity name.
[[nodiscard]] bool NuvDeviceNameDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device);

}  // namespace bds
