// Numbers the new options and gives them their place in the order, behind their group's last numbered option.
#include "bootopt/dumps/dumps.h"
#include "bootopt/option_numbers.h"
#include "bootopt/steps.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

// A step before took the numbers away: the groups have a new order.
bool LostItsNumber(const BOOT_OPTION_LIST& list) {
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    if (option->StoredNumber != kNoBootOptionNumber && option->BootOptionNumber == kNoBootOptionNumber) {
      return true;
    }
  }
  return false;
}

}  // namespace

void SetBootOptionPriorities() {
  // A policy, the STBU mode and the BMC's order of the groups decide the whole order, so that no option keeps its old
  // number. A policy for one boot may be withdrawn by now; its tags are the order of this boot all the same.
  const bool policy = HaveVbootPolicy();
  const bool anew =
      policy || gPolicyEngine.TaggedByPolicy != 0 || IsStbuEfiEnabled() || LostItsNumber(BootOptionList);
  if (anew) {
    HoldPlacesOfUnloadedOptions();
    for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
      option->BootOptionNumber = kNoBootOptionNumber;
    }
  }
  OptionNumberAllocator numbers(BootOptionList);
  SortList(BootOptionList, CompareByTag);
  UINT32 priority = 0;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (option->BootOptionNumber == kNoBootOptionNumber) {
      option->BootOptionNumber = numbers.Next();
      option->Priority = priority + 1;
    }
    priority = option->Priority;
  }
  if (anew) {
    RestorePlacesOfUnloadedOptions();
  }
  DumpBootOptionList(BootOptionList, "After Setting Priorities");
}

}  // namespace bds
