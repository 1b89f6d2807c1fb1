// The platform driver override that carries out the option ROM policy.
#pragma once

#include "platform/platform_driver_override.h"

namespace bds {

// Only GetDriver does anything; the others answer EFI_UNSUPPORTED.
[[nodiscard]] EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL MakeDriverOverride();

}  // namespace bds
