// The parts of one run of the tagging step under a policy.
#pragma once

#include "flexboot/policy_targets.h"
#include "vboot/option_wrapper.h"

namespace bds {

inline constexpr UINT32 kFirstTargetBase = 0x1000;
inline constexpr UINT32 kTargetTagRange = 0x1000;  // tags that each target owns, from its base on

// Turns the working marks of one target into final tags and records what it came to.
void FinishTargetMatches(POLICY_TARGET& target, UINT32 base);
// Tags the active options that no target took, and removes or switches off those that the management mode does not let
// boot. counter is the next free base; each such option joins targets as a target of its own.
void HandleNonPolicyItems(UINT32& counter, POLICY_TARGET_LIST& targets);
// Without a policy, for a UEFI boot of the STBU mode: USB devices first, then disks, then networks.
void TagStbuDefaults(OPTION_WRAPPER_LIST& wrappers, UINT32 base);

// The targets as text, in the log and for the people who read the report.
void ShowTargets(const POLICY_TARGET_LIST& targets);
// What the policy came to: the variable for the central manager, and the policy debug text.
void PublishResults(const POLICY_TARGET_LIST& targets);

}  // namespace bds
