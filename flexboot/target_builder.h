// One entry of the policy's record made a target of the engine.
#pragma once

#include "flexboot/policy_record.h"
#include "flexboot/policy_targets.h"
#include "flexboot/target_tags.h"

namespace bds {

// What the tags of a boot depend on beside the policy.
struct TARGET_CONTEXT {
  bool UefiMode = false;  // of the firmware, after it followed the policy
  bool Managed = false;
};

// Appends the target of an entry by its type's row. Locations of virtual functions are written into the entry. False,
// and an incomplete target left in the list, when the pool is exhausted.
[[nodiscard]] bool BuildPolicyTarget(FLEXBOOT_TARGET& entry, const TargetRow& row, const TARGET_CONTEXT& context,
                                     POLICY_TARGET_LIST& targets);

// Appends the tags of the PCI identity to the target; false when the pool is exhausted.
[[nodiscard]] bool AddPciIdentityTags(POLICY_TARGET& target, const POLICY_PCI_IDENTITY& data);

}  // namespace bds
