// Whether a medium or partition begins like a file system that the firmware reads, seen from its first sectors alone.
// Drivers ask this for every block device of a boot; opening the file system for good waits for its first user.
#pragma once

#include "sim/storage/block_source.h"

namespace sim {

enum class VolumeKind { None, Fat, Iso9660 };

[[nodiscard]] VolumeKind ProbeVolume(const BlockSource& volume);

}  // namespace sim
