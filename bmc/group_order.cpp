// The step that puts the groups of boot options into the BMC's order, and in strict mode removes the others.
#include "bmc/group_priorities.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "bootopt/boot_lists.h"
#include "support/debug_print.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

void PrintGroupName(UINT32 groupId) {
  switch (groupId) {
    case kGroupFloppy:
      DebugPrint("FDD \n");
      return;
    case kGroupHardDisk:
      DebugPrint("HDD \n");
      return;
    case kGroupCdRom:
      DebugPrint("CD/DVD \n");
      return;
    case kGroupPcmcia:
      DebugPrint("PCMCIA \n");
      return;
    case kGroupUsb:
      DebugPrint("USB \n");
      return;
    case kGroupNetwork:
      DebugPrint("NIC \n");
      return;
    case kGroupBev:
      DebugPrint("BEV Device \n");
      return;
    case kGroupUefi:
      DebugPrint("EFI Device \n");
      return;
    case kGroupBuiltInApplication:
      DebugPrint("EFI Shell \n");
      return;
    default:
      DebugPrint("Unknown \n");
  }
}

void DumpGroupOrder() {
  const UINT32* order = gBootOptions.GroupOrder.Ids;
  DebugPrint("Tag Priority    \n");
  DebugPrint("===========================:    \n");
  for (UINT32 place = 0; place < kGroupOrderPlaces && order[place] != kNoGroup; ++place) {
    DebugPrint("  Priority  %02d  : %04x  = ", place, order[place]);
    PrintGroupName(order[place]);
  }
}

// Puts the list's groups in front, each moved there from its place behind; one that the order does not have takes the
// place of the group that stands there. Returns how many places are the list's.
UINT32 PlaceGroups(const BMC_PRIORITY_LIST& list) {
  UINT32* order = gBootOptions.GroupOrder.Ids;
  UINT32 place = 0;
  for (; place < kGroupOrderPlaces && list.Ids[place] != kNoGroup; ++place) {
    const UINT32 from = GroupPosition(list.Ids[place]);
    for (UINT32 at = from == kNoGroup ? place : from; at > place; --at) {
      order[at] = order[at - 1];
    }
    order[place] = list.Ids[place];
  }
  return place;
}

void MergeBootOrder(const BMC_PRIORITY_LIST& list) {
  DebugPrint("MergeBootOrder:NumberOfEntries=%2d\n", kGroupOrderPlaces);
  static_cast<void>(PlaceGroups(list));
  DebugPrint("MergeBootOrder:Completed\n");
}

// UEFI and unknown groups have no legacy options.
void RemoveLegacyOptions(UINT32 groupId) {
  const UINT16 bbsType = BbsTypeOfGroup(groupId);
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    if (IsLegacyOption(*option) && !IsBuiltInApplicationOption(*option) && option->BbsEntry != nullptr &&
        option->BbsEntry->DeviceType == bbsType) {
      DebugPrint("RemoveBootOptions:Delete option:%a\n", option->Description.get());
      DeleteBootOption(BootOptionList, option);
    }
    option = next;
  }
}

// The built-in application stays although the BMC does not name it, and in config mode the UEFI options do.
bool StaysUnnamed(UINT32 groupId) {
  return groupId == kGroupBuiltInApplication || (groupId == kGroupUefi && gBmc.ZephanConfigMode != FALSE);
}

void KeepBMCBootOrder(const BMC_PRIORITY_LIST& list) {
  UINT32* order = gBootOptions.GroupOrder.Ids;
  DebugPrint("KeepBMCBootOrder:NumberOfEntries=%2d\n", kGroupOrderPlaces);
  UINT32 place = PlaceGroups(list);
  DebugPrint("KeepBMCBootOrder(): Removing unspecified options \n");
  while (place < kGroupOrderPlaces && order[place] != kNoGroup) {
    if (const UINT16 type = BbsTypeOfGroup(order[place]); type != kBbsTypeUefi && type != kBbsTypeNone) {
      RemoveLegacyOptions(order[place]);
    }
    if (StaysUnnamed(order[place])) {
      ++place;
      continue;
    }
    for (UINT32 at = place; at < kGroupOrderPlaces; ++at) {
      order[at] = order[at + 1];
    }
  }
  DebugPrint("KeepBMCBootOrder:Setting unassigned tags\n");
  for (; place < kGroupOrderPlaces; ++place) {
    order[place] = kNoGroup;
  }
  DebugPrint("KeepBMCBootOrder:Completed\n");
}

void ApplyBmcOrder(bool strict) {
  BMC_PRIORITY_LIST list;
  if (EFI_ERROR(GetBootPrioritiesFromBmc(list))) {
    return;
  }
  if (strict) {
    DebugPrint("SetGroupBootOrder:KeepBMCBootOrder!\n");
    KeepBMCBootOrder(list);
  } else {
    MergeBootOrder(list);
    DebugPrint("SetGroupBootOrder:MergeBootOrder!\n");
  }
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    option->BootOptionNumber = kNoBootOptionNumber;  // SetBootOptionPriorities numbers all anew
  }
}

}  // namespace

void SetGroupBootOrder() {
  if (HaveVbootPolicy()) {
    DebugPrint("SetGroupBootOrder:Have FlexBoot policy\n");
    return;
  }
  const bool strict = IsStrictGroupOrder();
  const bool updated = gPolicyEngine.BotUpdatedOldWay != 0;
  if (!strict && !updated) {
    DebugPrint("SetGroupBootOrder: No new BMC BootOrder in Loose Mode \n");
    return;
  }
  if (!strict) {
    DebugPrint("SetGroupBootOrder: New BMC BootOrder in Loose Mode \n");
  } else if (updated) {
    DebugPrint("SetGroupBootOrder: New BMC BootOrder in Strict Mode \n");
  } else {
    DebugPrint("SetGroupBootOrder: No new BMC BootOrder in Strict Mode \n");
  }
  DebugPrint("SetGroupBootOrder:Before merging BMC's Order\n");
  DumpGroupOrder();
  ApplyBmcOrder(strict);
  DebugPrint("SetGroupBootOrder:After merging BMC's Order\n");
  DumpGroupOrder();
}

}  // namespace bds
