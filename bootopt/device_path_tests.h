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
// EFI_SUCCESS when the instance begins with the partition of this handle, known by number and signature; EFI_NOT_FOUND
// when it does not, or the handle is no partition's; any other error when the handle did not let itself be asked.
[[nodiscard]] EFI_STATUS ComparePartition(const DevicePath* instance, EFI_HANDLE handle);
// The same of the device's handle.
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
