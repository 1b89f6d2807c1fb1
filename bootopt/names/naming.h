// Names of devices and options, their display text, and what PCI says of a device.
#pragma once

#include <span>

#include "bootopt/boot_option.h"
#include "support/pool.h"

namespace bds {

inline constexpr UINTN kNameCapacity = 1024;  // characters of a name buffer

// Gives the option a new Description; returns its length in characters.
UINTN BuildBootOptionName(BOOT_OPTION& option);
// The name by which the same device is recognised on later boots; 0: none. Writes a NUL behind the name.
[[nodiscard]] UINTN BuildDeviceIdentityName(const BOOT_OPTION& option, std::span<CHAR16> buffer);

// The name of a device on the USB or SCSI bus, from its INQUIRY answer; null when it has none.
[[nodiscard]] PoolPtr<char> UsbDeviceName(EFI_HANDLE handle);
[[nodiscard]] PoolPtr<char> ScsiDeviceName(EFI_HANDLE handle);

// The path as ASCII text in pool memory. flags is reserved and 0.
[[nodiscard]] EFI_STATUS DevicePathToText(const EFI_DEVICE_PATH_PROTOCOL* path, PoolPtr<char>& text, UINT32 flags = 0);

// Rewrites the description of a SATA or PATA disk in legacy memory so that it names the port.
void RewriteLegacyPortName(const BBS_TABLE& entry);

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
// What PCI configuration space says of the function nearest to the device path's end.
[[nodiscard]] EFI_STATUS GetPciDeviceInfo(const EFI_DEVICE_PATH_PROTOCOL* path, PCI_DEVICE_INFO& info);

// The name of a legacy device as the BMC knows it, from its location code; NUL-terminated, at most 200 characters.
inline constexpr UINTN kLegacyLocationNameCapacity = 201;
UINTN BuildLegacyLocationName(const BBS_TABLE& entry, UINT8 locationCode, std::span<char> text);

// Registers the driver's strings with the HII database; failures leave the literal fall-backs in force.
void RegisterStrings();
// The string of this id in the platform language, else in en-US; null when it cannot be had.
[[nodiscard]] PoolPtr<CHAR16> GetDriverString(UINT16 id);

}  // namespace bds
