// The device paths by which a firmware option finds its device again, and the builders that put them together.
#pragma once

#include "bootopt/boot_option.h"
#include "bootopt/vendor_nodes.h"

namespace bds {

// Runs every builder on the option, in order; true when at least one added something. FilePathList is extended, so
// that a caller who wants a new path clears the old one first.
bool BuildFilePathList(BOOT_OPTION& option);

// The builders. Each adds a complete device path behind what FilePathList holds; false when it adds nothing.
bool BuildLegacyFilePath(BOOT_OPTION& option);
bool BuildEfiFilePath(BOOT_OPTION& option);
bool BuildLegacyLocationFilePath(BOOT_OPTION& option);
bool BuildDeviceNameFilePath(BOOT_OPTION& option);

// The node that says where the legacy device of the BBS entry sits.
[[nodiscard]] LEGACY_LOCATION_DEVICE_PATH LegacyLocationNode(const BBS_TABLE& entry, UINT16 bbsIndex);

// The short form of a path: the partition's node, the file's path and the end (UEFI 2.10, 3.1.2). Null when the path is
// longer than a node can say or the pool is exhausted; size is its bytes.
[[nodiscard]] PoolPtr<EFI_DEVICE_PATH_PROTOCOL> BuildShortFormPath(const EFI_DEVICE_PATH_PROTOCOL* partition,
                                                                   const CHAR16* filePath, UINTN& size);

// The longest FilePathList that a load option can hold: its length field has 16 bits (UEFI 2.10, 3.1.3).
inline constexpr UINTN kMaxFilePathListLength = 0xFFFF;

}  // namespace bds
