// Busy waiting on the ACPI power-management timer: the file transfer uses no boot service.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline constexpr UINT16 kPmTimerPort = 0x408;  // 32-bit read; the low 24 bits count at about 3.58 per microsecond

// Waits at least that many microseconds. With a timer that stands still (absent, floating bus) it returns after a
// number of port reads in proportion, each of which takes about a microsecond on the bus.
void PmTimerStall(UINT32 microseconds);

}  // namespace bds
