#include "vboot/policy_engine.h"

namespace bds {

constinit POLICY_ENGINE_STATE gPolicyEngine;

}  // namespace bds
