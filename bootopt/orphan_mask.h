// The mask in front of the path of an option whose device is absent: with it no boot manager finds a device for it.
#pragma once

#include "bootopt/boot_option.h"
#include "support/byte_reader.h"

namespace bds {

// The mask's vendor node and an end node.
inline constexpr UINTN kOrphanMaskSize = 24;

// True when the path begins with the mask's vendor node.
[[nodiscard]] bool HasOrphanMask(Bytes filePathList);
// The path behind the mask: the same bytes when there is none, and when nothing stands behind it.
[[nodiscard]] Bytes BehindOrphanMask(Bytes filePathList);

// Puts the mask in front. A path that would become longer than a load option can say stays as it is, likewise when
// the pool is exhausted.
void PutOrphanMask(BOOT_OPTION& option);
// Removes the mask; an option whose whole path is the mask keeps it.
void RemoveOrphanMask(BOOT_OPTION& option);

}  // namespace bds
