// The highest task priority at which a service may be called (UEFI 2.10, table 7.3).
#pragma once

#include <string_view>

#include "platform/boot_services.h"

namespace sim {

// TPL_HIGH_LEVEL for names that the table does not know.
EFI_TPL HighestPriority(std::string_view service);
// A boot or runtime service whose calls are counted and can be scripted.
bool IsServiceName(std::string_view service);

}  // namespace sim
