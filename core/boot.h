// Booting one option. Each routine returns only when the option did not take the machine over.
#pragma once

#include "support/byte_reader.h"
#include "support/device_path.h"

namespace bds {

inline constexpr UINT16 kNoOptionNumber = 0xFFFF;

// Loads and starts the image at the path or, when there is none, the removable-media loader of the device there.
// optionalData becomes the image's load options; it is copied and need not outlive the call. The status is that of the
// last load, or what the image returned.
EFI_STATUS BootEfiOption(const DevicePath* path, UINT16 number, Bytes optionalData);

// Boots the legacy device of the node's type that comes first in the BBS priorities. EFI_NOT_FOUND, with nothing
// changed, when the table holds none.
EFI_STATUS BootLegacyOption(const DevicePath* path, UINT16 number);

// Shows the BBS table as it is handed over to the CSM, and the driver's legacy options, in the log.
void ReportBbsDevices();

// Writes BootCurrent, unless the number is kNoOptionNumber, and signals the ready-to-boot event group.
void SignalReadyToBoot(UINT16 number);

}  // namespace bds
