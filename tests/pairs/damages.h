// What may be damaged in a server's state: load options and orders that are no such thing, variables of the driver's
// own, files of the BMC, strings of the BBS table, disks.
#pragma once

#include "tests/pairs/pair_server.h"

namespace sim::test {

inline constexpr std::size_t kCutDisks[] = {512, 1024, 17408, 50000};  // bytes that are left of the first disk

// Damages the world, differently for each number.
void Damage(World& world, unsigned number);

}  // namespace sim::test
