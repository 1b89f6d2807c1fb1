// What a boot left behind: the pool blocks of one image that nothing reaches any more. The scan is conservative, as a
// collector's is: any aligned word that points into a block counts as a reference to it.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "sim/firmware/pool.h"

namespace sim {

class Machine;

using Extent = std::span<const std::byte>;

struct LeakReport {
  std::vector<PoolBlock> unreachable;  // in the order of allocation
  std::size_t ownedBlocks = 0;         // all live blocks of that owner
  std::uint64_t ownedBytes = 0;
  std::uint64_t peakBytes = 0;  // of all owners together
};

// Scans from the given extents (the driver's data sections), the stack that EndBoot abandoned, the interfaces of the
// handle database, the firmware vendor text, the configuration tables, the event contexts and the machine's own
// extents (Machine::AddRoot), and from there through pool blocks of every owner.
LeakReport FindLeaks(Machine& machine, EFI_HANDLE owner, std::span<const Extent> roots);

// The writable data of the running program itself: where the state of a driver that is linked in lies.
std::vector<Extent> ProgramData();

}  // namespace sim
