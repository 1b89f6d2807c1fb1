// The two lists of drivers that the option ROM policy hands out.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Lists the drivers present, in the handle database's order, and from now on each one that appears.
void CollectDrivers();

// True when the image, or the driver binding's own handle, carries the mark of a driver that runs legacy option ROMs.
[[nodiscard]] bool IsThunkDriver(EFI_HANDLE handle);

}  // namespace bds
