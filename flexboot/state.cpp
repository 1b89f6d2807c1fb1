// The one record of the policy intake.
#include "flexboot/state.h"

namespace bds {

constinit FLEXBOOT_STATE gFlexBoot;

}  // namespace bds
