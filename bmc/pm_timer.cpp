// Busy waiting on the ACPI power-management timer.
#include "bmc/pm_timer.h"

#include "platform/io_ports.h"

namespace bds {
namespace {

constexpr UINT32 kTimerMask = 0xFFFFFF;

}  // namespace

void PmTimerStall(UINT32 microseconds) {
  UINT32 previous = IoRead32(kPmTimerPort) & kTimerMask;
  UINT64 ticks = previous;
  const UINT64 target = ticks + UINT64{microseconds} * 358 / 100 + 1;
  // A working timer moves with nearly every read, so this allowance runs out on one that stands still only.
  UINT64 idleReads = UINT64{microseconds} * 2 + 1000;
  while (ticks <= target && idleReads != 0) {
    const UINT32 now = IoRead32(kPmTimerPort) & kTimerMask;
    if (now == previous) {
      --idleReads;
    }
    ticks += (now - previous) & kTimerMask;
    previous = now;
  }
}

}  // namespace bds
