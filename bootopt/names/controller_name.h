// The name that drivers give a controller: the source of network names and the last resort of device names.
#pragma once

#include "platform/uefi_base.h"
#include "support/pool.h"

namespace bds {

// Names are cut to this many characters: the text belongs to a driver, and nobody tells its length.
inline constexpr UINTN kControllerNameCapacity = 256;

// The first nonempty name that a driver managing the controller gives for it, or, with a child, for that child of
// it. A driver manages the controller when it holds any of its protocols open BY_DRIVER; disk I/O, which drivers of
// partitions and file systems hold, does not count. Each driver is asked through component name 2 ("en-US"), then
// through the older component name ("eng") (UEFI 2.10, 11.5). Null when none answers.
[[nodiscard]] PoolPtr<CHAR16> ControllerName(EFI_HANDLE controller, EFI_HANDLE child);

// The name of the controller itself; failing that, the name that the handles along its device path, from the nearest
// to the root, give for it as their child. Null when none answers.
[[nodiscard]] PoolPtr<CHAR16> ControllerNameOnPath(EFI_HANDLE controller);

}  // namespace bds
