// ACPI device path nodes of the devices behind the ISA bridge.
#pragma once

#include "support/device_path.h"

namespace bds {

// Compressed EISA identifiers.
inline constexpr UINT32 kPs2Keyboard = 0x030341D0;          // PNP0303
inline constexpr UINT32 kPs2Mouse = 0x0F0341D0;             // PNP0F03
inline constexpr UINT32 kSerialPort = 0x050141D0;           // PNP0501
inline constexpr UINT32 kFloppyController = 0x060441D0;     // PNP0604
inline constexpr UINT32 kOldFloppyController = 0x070041D0;  // PNP0700

constexpr ACPI_HID_DEVICE_PATH AcpiNode(UINT32 hid, UINT32 uid = 0) {
  return {NodeHeader<ACPI_HID_DEVICE_PATH>(ACPI_DEVICE_PATH, ACPI_DP), hid, uid};
}

}  // namespace bds
