// The group ids of boot options and the order of the groups.
#pragma once

#include "bootopt/boot_option.h"

namespace bds {

inline constexpr UINT32 kNoGroup = 0xFFFFFFFF;
inline constexpr UINT32 kGroupFloppy = 0;
inline constexpr UINT32 kGroupHardDisk = 1;
inline constexpr UINT32 kGroupCdRom = 2;
inline constexpr UINT32 kGroupPcmcia = 3;
inline constexpr UINT32 kGroupUsb = 4;
inline constexpr UINT32 kGroupNetwork = 5;
inline constexpr UINT32 kGroupBev = 6;
inline constexpr UINT32 kGroupUefi = 7;
inline constexpr UINT32 kGroupBuiltInApplication = 8;
inline constexpr UINT32 kFirstUefiGroup = 263;  // each plain UEFI option is a group by itself, numbered from here

// The groups in boot order, ended by kNoGroup: seven places and the end.
inline constexpr UINT32 kGroupOrderPlaces = 7;
struct GROUP_ORDER {
  UINT32 Ids[kGroupOrderPlaces + 1];
};
inline constexpr GROUP_ORDER kDefaultGroupOrder{{kGroupHardDisk, kGroupCdRom, kGroupFloppy, kGroupNetwork,
                                                 kGroupBuiltInApplication, kGroupUefi, kNoGroup, kNoGroup}};

// The group id of a BBS device type; kNoGroup when the type has none.
[[nodiscard]] UINT32 GroupOfBbsType(UINT16 deviceType);
// The index of the id in this boot's group order (BOOT_OPTION_STATE); kNoGroup when absent.
[[nodiscard]] UINT32 GroupPosition(UINT32 groupId);

}  // namespace bds
