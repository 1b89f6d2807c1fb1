// From the kind of device that a boot request names to the boot option that stands for it.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Moves the option that the request in gBmc means to the front of the order. A legacy request looks for options of
// the BBS type, a UEFI request for device paths with a node of the type and subtype.
// EFI_NOT_FOUND when the list is empty or no option was selected, EFI_ABORTED when the order of before cannot be kept
// for the next boot; nothing has changed then.
[[nodiscard]] EFI_STATUS ApplyIpmiBootDevice(UINT16 BbsType, UINT16 NodeType, UINT16 NodeSubType);

}  // namespace bds
