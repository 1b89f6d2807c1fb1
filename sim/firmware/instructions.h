// Instructions that the host's processor refuses to a program and that firmware, and what runs on it, may use: they are
// carried out on the simulated machine.
#pragma once

#include <sys/ucontext.h>

#include <array>
#include <cstdint>

namespace sim {

class Machine;

// What privileged instructions read and write, as firmware leaves it to a loader: long mode with paging, no
// exceptions of the floating point unit pending.
struct ControlRegisters {
  std::array<std::uint64_t, 16> cr{0x8001'0033, 0, 0, 0x0010'0000, 0x0000'0668};
};

// True when the instruction at RIP is such a one: the registers are as behind it, RIP included. It may end the boot.
bool CarryOutInstruction(greg_t* registers, Machine& machine, ControlRegisters& control);

}  // namespace sim
