// Policies that are no longer current: marked so on the BMC, and withdrawn for the rest of the boot.
#pragma once

#include "platform/boot_services.h"

namespace bds {

// The BMC has a newer boot order table. Always EFI_SUCCESS.
EFI_STATUS HandleStalePolicy();

// A policy for one boot was applied and reported; runs when a report is installed, behind its export.
VOID EFIAPI HandleOneTimeBootStale(EFI_EVENT event, VOID* context);

// The platform of a standalone server says so.
VOID EFIAPI RackHandleStalePolicy(EFI_EVENT event, VOID* context);

}  // namespace bds
