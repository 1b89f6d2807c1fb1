// What NVRAM holds of boot options, for the debug log.
#pragma once

namespace bds {

// Prints BootOrder, each option in it, and each Boot#### variable that is not in it.
void DumpNvramOptions();

}  // namespace bds
