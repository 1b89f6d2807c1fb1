// Marks that tell other drivers that the console devices are being, or have been, started.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Installs a null interface for the GUID on the driver's image handle, once. deviceVariable may be null; when it names
// an EFI global variable that does not exist, no console device was found and nothing is installed.
void InstallConsoleStartedProtocol(const CHAR16* deviceVariable, const EFI_GUID& guid);

}  // namespace bds
