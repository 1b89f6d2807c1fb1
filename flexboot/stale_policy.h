// Policies that are no longer current: marked so on the BMC, and withdrawn, so that the rest of the boot sees none.
#pragma once

#include "platform/boot_services.h"

namespace bds {

// The BMC has a newer boot order table: the policy's files on the BMC get their stale names, and no cached record
// brings the policy back. Always EFI_SUCCESS.
EFI_STATUS HandleStalePolicy();

// A policy for one boot was applied and reported: the BMC is told so. Runs when a report is installed, behind its
// export. A policy for one boot that was not applied stays for the next boot; of one that the BMC could not be told of
// NVRAM keeps a note.
VOID EFIAPI HandleOneTimeBootStale(EFI_EVENT event, VOID* context);

// The BMC still has a policy for one boot that an earlier boot used: tells it again, and when it takes that, forgets
// that there is something to tell.
void ReportUsedPolicyAgain();

// The platform of a standalone server says so: a marker file tells the BMC, which the policy itself is left to.
VOID EFIAPI RackHandleStalePolicy(EFI_EVENT event, VOID* context);

}  // namespace bds
