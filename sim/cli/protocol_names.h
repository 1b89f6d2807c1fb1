// Short names of the protocols that devices carry.
#pragma once

#include <string>

#include "platform/uefi_base.h"

namespace sim {

// "BlockIo" for EFI_BLOCK_IO_PROTOCOL and the like; the GUID's text for one that has no name here.
std::string ProtocolShortName(const EFI_GUID& guid);

}  // namespace sim
