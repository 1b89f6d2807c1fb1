// Gives every option its group key where no boot policy is in force.
#include "bootopt/groups.h"
#include "bootopt/steps.h"

namespace bds {
namespace {

// An absent position (all ones) leaves 0xFFFF in the upper half.
UINT32 MakeTag(UINT32 groupId, UINT32 lowHalf) { return GroupPosition(groupId) << 16 | lowHalf; }

void TagLegacyOption(BOOT_OPTION& option) {
  UINT16 deviceType = 0;
  const UINT32 groupId = FirstNodeDeviceType(option, deviceType) ? GroupOfBbsType(deviceType) : kNoGroup;
  if (groupId != kNoGroup) {
    option.Tag = MakeTag(groupId, groupId);
  }
}

}  // namespace

void SetDefaultBootOptionTags() {
  UINT32 nextUefiGroup = kFirstUefiGroup;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (IsLegacyOption(*option)) {
      TagLegacyOption(*option);
    } else if (IsBuiltInApplicationOption(*option)) {
      option->Tag = MakeTag(kGroupBuiltInApplication, kGroupBuiltInApplication);
    } else {
      option->Tag = MakeTag(kGroupUefi, nextUefiGroup & 0xFFFF);
      ++nextUefiGroup;
    }
  }
}

}  // namespace bds
