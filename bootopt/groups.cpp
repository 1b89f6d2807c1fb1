#include "bootopt/groups.h"

#include "bootopt/boot_lists.h"

namespace bds {
namespace {

struct TypeGroup {
  UINT16 BbsType;
  UINT32 GroupId;
};
constexpr TypeGroup kTypeGroups[] = {
    {BBS_TYPE_FLOPPY, kGroupFloppy}, {BBS_TYPE_HARDDRIVE, kGroupHardDisk},
    {BBS_TYPE_CDROM, kGroupCdRom},   {BBS_TYPE_PCMCIA, kGroupPcmcia},
    {BBS_TYPE_USB, kGroupUsb},       {BBS_TYPE_EMBEDDED_NETWORK, kGroupNetwork},
    {BBS_TYPE_BEV, kGroupBev},
};

}  // namespace

UINT32 GroupOfBbsType(UINT16 deviceType) {
  for (const TypeGroup& row : kTypeGroups) {
    if (row.BbsType == deviceType) {
      return row.GroupId;
    }
  }
  return kNoGroup;
}

UINT32 GroupPosition(UINT32 groupId) {
  const UINT32* order = gBootOptions.GroupOrder.Ids;
  for (UINT32 position = 0; position < kGroupOrderPlaces && order[position] != kNoGroup; ++position) {
    if (order[position] == groupId) {
      return position;
    }
  }
  return kNoGroup;
}

}  // namespace bds
