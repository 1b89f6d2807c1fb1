// Network ports and adapters of storage networks as tables describe them, with the disks that they reach.
#pragma once

#include "sim/bus/adapter_registers.h"
#include "sim/server/drive_reader.h"

namespace sim {

// `boots`: the port offers network boots unless it is told otherwise.
NetworkController ReadNetwork(TableReader& table, const DriveReader& drives, bool boots);
// The memory behind a controller's registers as its [nvm] table describes it; `function` is its PCI function number and
// `mac` its port's address.
AdapterNvm ReadNvm(TableReader& table, std::uint8_t function, const decltype(NetworkPort::mac)& mac);
FibreChannelController ReadFibre(TableReader& table, const DriveReader& drives);

}  // namespace sim
