// Network ports and adapters of storage networks as tables describe them, with the disks that they reach.
#pragma once

#include "sim/server/drive_reader.h"

namespace sim {

// `boots`: the port offers network boots unless it is told otherwise.
NetworkController ReadNetwork(TableReader& table, const DriveReader& drives, bool boots);
FibreChannelController ReadFibre(TableReader& table, const DriveReader& drives);

}  // namespace sim
