// The policy intake's step of the control flow.
#pragma once

namespace bds {

// Creates an option for every loader that the policy names and a volume holds.
void GenerateUefiPolicyOptionsEntry();

}  // namespace bds
