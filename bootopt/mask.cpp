// Masks what has no device on this boot. Comes last before saving, since a masked path matches nothing.
#include "bootopt/orphan_mask.h"
#include "bootopt/steps.h"

namespace bds {

void MaskOrphanDevices() {
  SortList(BootOptionList, CompareByPriority);
  BOOT_OPTION* pendingHeader = nullptr;  // a group header of which no present member was seen yet
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (!IsLegacyOption(*option)) {
      continue;
    }
    if (option->GroupHeader != FALSE) {
      if (pendingHeader != nullptr) {
        PutOrphanMask(*pendingHeader);
      }
      pendingHeader = option;
    } else if (IsOrphan(*option)) {
      PutOrphanMask(*option);
    } else if (pendingHeader != nullptr && option->BootOptionNumber == pendingHeader->BootOptionNumber) {
      pendingHeader = nullptr;
    }
  }
  if (pendingHeader != nullptr) {
    PutOrphanMask(*pendingHeader);
  }
}

}  // namespace bds
