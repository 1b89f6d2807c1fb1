// The one record of the BMC subsystem.
#include "bmc/state.h"

namespace bds {

constinit BMC_STATE gBmc;

}  // namespace bds
