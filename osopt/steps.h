// The steps for operating systems' loaders and the default order, in table order. Failures are logged; the control flow
// looks at no result.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Removes from BootOrder, before it is loaded, what starts the same loader as another option and the firmware's options
// of partitions that are gone.
void AdjustEfiOsBootOrder();
// STBU mode: an option for every known loader on a fixed disk that no option starts yet. EFI_UNSUPPORTED in other
// modes.
EFI_STATUS CreateEfiOsBootOption();
// Gives the firmware's own options of present devices the path and name that they would get today; loaders' keep
// theirs.
void EfiOsName_NormalizeBootOptions();
// Writes the order that the setup front end offers as its default.
void SetDefaultKuiBootOrder();

}  // namespace bds
