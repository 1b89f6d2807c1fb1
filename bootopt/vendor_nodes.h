// The hardware vendor nodes (type 1, subtype 4) by which the firmware tells its own device paths apart.
#pragma once

#include "platform/device_path.h"

namespace bds {

// In front of a path: no device may be found for it, by this or any other boot manager. Only the GUID.
inline constexpr EFI_GUID kOrphanMaskGuid{0x99E275E7, 0x75A0, 0x4B37, {0xA2, 0xE6, 0xC5, 0x38, 0x5E, 0x6C, 0x00, 0xCB}};

// Where a legacy device sits; LEGACY_LOCATION_DEVICE_PATH.
inline constexpr EFI_GUID kLegacyLocationGuid{
    0x1DB184AE, 0x81F5, 0x4E72, {0x85, 0x44, 0x2B, 0xAB, 0x0C, 0x2C, 0xAC, 0x5C}};

// The identity name of a device: UTF-16 with its NUL follows the GUID.
inline constexpr EFI_GUID kDeviceNameGuid{0x2D6447EF, 0x3BC9, 0x41A0, {0xAC, 0x19, 0x4D, 0x51, 0xD0, 0x1B, 0x4C, 0xE6}};

// Stands in for a device that the boot policy names and that need not be there yet. Only the GUID.
inline constexpr EFI_GUID kVeyraStandinGuid{
    0x22DA46D1, 0x6556, 0x4948, {0xB2, 0x53, 0x2C, 0x3E, 0xB2, 0xE5, 0x32, 0xAF}};

#pragma pack(push, 1)
struct LEGACY_LOCATION_DEVICE_PATH {
  VENDOR_DEVICE_PATH Vendor;
  UINT8 Bus;
  UINT8 Device;
  UINT8 Function;
  UINT8 Class;
  UINT8 SubClass;
  UINT8 Instance;  // entries directly before this one with the same location and class
};
static_assert(sizeof(LEGACY_LOCATION_DEVICE_PATH) == 26);
#pragma pack(pop)

}  // namespace bds
