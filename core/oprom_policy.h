// Option ROM launch policy: which of a controller's drivers, UEFI or legacy option ROM, may have it.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Takes the policy bytes from the Setup record and arranges the start-up: at once when a CSM is there, else when one
// appears. Called by the entry point when Setup could be read.
void ArrangeOptionRomPolicy();

// The start-up: installs the driver override and the CSM's hooks, once; nothing without a CSM.
void StartOptionRomPolicy();

}  // namespace bds
