// The group ids of boot options and the default order of the groups.
#pragma once

#include "bootopt/boot_option.h"

namespace bds {

inline constexpr UINT32 kNoGroup = 0xFFFFFFFF;
inline constexpr UINT32 kGroupUefi = 7;
inline constexpr UINT32 kGroupBuiltInApplication = 8;
inline constexpr UINT32 kFirstUefiGroup = 263;  // each plain UEFI option is a group by itself, numbered from here

// Hard disk, CD-ROM, floppy, network, built-in application, UEFI; ended by kNoGroup.
inline constexpr UINT32 kDefaultGroupOrder[] = {1, 2, 0, 5, kGroupBuiltInApplication, kGroupUefi, kNoGroup};

// The group id of a BBS device type; kNoGroup when the type has none.
[[nodiscard]] UINT32 GroupOfBbsType(UINT16 deviceType);
// The index of the id in the default order; kNoGroup when absent.
[[nodiscard]] UINT32 GroupPosition(UINT32 groupId);

}  // namespace bds
