// The policy's way into the driver: from the file on the BMC to the record that is in force on this boot.
#pragma once

#include "flexboot/policy_record.h"

namespace bds {

inline constexpr UINTN kPolicyBufferSize = 4096;  // of a policy's text, with its NUL

// Reads the policy for this boot from the BMC, keeps its record in the variable FlexBootOrder (on a managed server) and
// publishes it; without a policy on the BMC a managed server gets the record that it kept. Success means that a policy
// is in force; order is set when it was read on this boot, else null. The record belongs to gFlexBoot.
EFI_STATUS ExtractZephBootOrder(FLEXBOOT_ORDER_HEADER** order);

// Read a policy's text into a buffer of kPolicyBufferSize, with a NUL behind it; what does not fit is left out.
// EFI_DEVICE_ERROR when the file cannot be opened, or not be read to its end.
[[nodiscard]] EFI_STATUS GetOneTimeBoot(char* buffer);
[[nodiscard]] EFI_STATUS GetDatafromSAM(char* buffer);

}  // namespace bds
