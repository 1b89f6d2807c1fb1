// Finding a loader on a volume: by its path, by its name anywhere on the volume, or as the first EFI file of a
// directory.
#pragma once

#include "platform/simple_file_system.h"
#include "platform/unicode_collation.h"
#include "support/file.h"
#include "support/pool.h"

namespace bds {

// What is known of a loader; both bits together name a file.
inline constexpr UINT8 kLoaderPathKnown = 1;
inline constexpr UINT8 kLoaderNameKnown = 2;

// Locates the interface that compares file names, once a boot. Logs nothing.
[[nodiscard]] EFI_STATUS LocateCollation();

// The file's name: what stands behind the last backslash of its path.
[[nodiscard]] const CHAR16* FileName(const CHAR16* path);

// The path of the loader on the volume, in pool memory. fullPath is a directory, a name or a file's path, as
// availableData says. EFI_NOT_FOUND when the volume has none.
[[nodiscard]] EFI_STATUS FindLoaderFile(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume, const CHAR16* fullPath,
                                        UINT8 availableData, PoolPtr<CHAR16>& foundPath);
// The first file of that name (a pattern) on the volume, depth first.
[[nodiscard]] EFI_STATUS FindFileInFs(const CHAR16* name, PoolPtr<CHAR16>& foundPath, const File& root);
// The first entry of the directory that the pattern fits.
[[nodiscard]] EFI_STATUS FindFileInDir(const CHAR16* pattern, const CHAR16* directory, PoolPtr<CHAR16>& foundPath,
                                       const File& root);

}  // namespace bds
