// The SMBIOS tables of the simulated server (DSP0134 3.4), made from its description: firmware, system, board, chassis,
// processors, slots and memory.
#pragma once

#include <string>
#include <vector>

#include "sim/firmware/machine.h"

namespace sim {

inline constexpr EFI_GUID gEfiSmbios3TableGuid{
    0xF2FD1544, 0x9794, 0x4A2C, {0x99, 0x2E, 0xE5, 0xBB, 0xCF, 0x20, 0xE3, 0x94}};

struct SmbiosFacts {
  std::string product;
  unsigned sockets = 1;
  std::vector<unsigned> slots;  // numbers of the slots for cards
};

// The structures one behind the other, the end-of-table one included.
std::vector<std::uint8_t> SmbiosStructures(const SmbiosFacts& facts);

// Writes them with a 64-bit entry point into memory of their own and installs the configuration table.
EFI_STATUS InstallSmbiosTables(Machine& machine, const SmbiosFacts& facts);

}  // namespace sim
