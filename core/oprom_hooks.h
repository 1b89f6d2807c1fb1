// What the CSM asks the platform before and after it runs option ROMs.
#pragma once

#include "platform/csm_policy.h"

namespace bds {

[[nodiscard]] CSM_POLICY_HOOK_A MakePolicyHookA();
[[nodiscard]] CSM_POLICY_HOOK_B MakePolicyHookB();

}  // namespace bds
