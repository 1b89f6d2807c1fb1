// Boot options made of a loader's path on a volume.
#pragma once

#include <span>

#include "bootopt/boot_lists.h"

namespace bds {

// Creates an option for the loader on every volume that holds it; null handles are left out. Each text may be null.
// EFI_INVALID_PARAMETER when neither a path nor a name is given, EFI_OUT_OF_RESOURCES; a volume without the loader is
// no error.
EFI_STATUS CreatePathBasedBootOption(const char* path, const char* name, const char* description,
                                     std::span<const EFI_HANDLE> volumes);

// The directory, the name or the file's path, as availableData says (kLoaderPathKnown, kLoaderNameKnown).
[[nodiscard]] EFI_STATUS BuildPath(const char* path, const char* name, UINT8 availableData, PoolPtr<CHAR16>& fullPath);

// Appends an option for the file on the partition behind the handle, with all but its name. EFI_ABORTED, and the
// option, when one is there already; EFI_INVALID_PARAMETER when the partition is not one of a GPT or the path is too
// long.
[[nodiscard]] EFI_STATUS CreateOptionForFile(BOOT_OPTION_LIST& options, EFI_HANDLE handle, const CHAR16* filePath,
                                             BOOT_OPTION*& option);

}  // namespace bds
