// Connecting drivers to controllers (UEFI 2.10, 7.3.12 and 7.3.13): which drivers are asked, in which order, and how
// they are stopped.
#pragma once

#include "platform/boot_services.h"

namespace sim {

class Machine;

EFI_STATUS ConnectController(Machine& machine, EFI_HANDLE controller, EFI_HANDLE* driverImages,
                             EFI_DEVICE_PATH_PROTOCOL* remainingPath, bool recursive);
EFI_STATUS DisconnectController(Machine& machine, EFI_HANDLE controller, EFI_HANDLE driverImage, EFI_HANDLE child);

}  // namespace sim
