#include "sim/firmware/crash_catcher.h"

#include <fmt/format.h>
#include <ucontext.h>

#include <cstdint>

#include "sim/firmware/machine.h"

namespace sim {
namespace {

// The port instructions (Intel SDM, volume 2: IN, OUT, OUTS), decoded at the faulting address.
class PortInstruction {
 public:
  explicit PortInstruction(greg_t* registers)
      : registers_(registers), code_(reinterpret_cast<const std::uint8_t*>(registers[REG_RIP])) {}

  // False when it is none.
  bool CarryOut(PortBus& ports) {
    unsigned length = 0;
    bool repeat = false;
    unsigned width = 4;
    for (; code_[length] == 0x66 || code_[length] == 0xF3; ++length) {
      (code_[length] == 0x66 ? wide_ : repeat) = true;
    }
    if (wide_) {
      width = 2;
    }
    const std::uint8_t opcode = code_[length++];
    const auto dx = static_cast<std::uint16_t>(registers_[REG_RDX]);
    switch (opcode) {
      case 0xE4:
        Load(ports.In(code_[length++], 1), 1);
        break;
      case 0xE5:
        Load(ports.In(code_[length++], width), width);
        break;
      case 0xEC:
        Load(ports.In(dx, 1), 1);
        break;
      case 0xED:
        Load(ports.In(dx, width), width);
        break;
      case 0xE6:
        ports.Out(code_[length++], Accumulator(), 1);
        break;
      case 0xE7:
        ports.Out(code_[length++], Accumulator(), width);
        break;
      case 0xEE:
        ports.Out(dx, Accumulator(), 1);
        break;
      case 0xEF:
        ports.Out(dx, Accumulator(), width);
        break;
      case 0x6E:
        OutString(ports, dx, repeat);
        break;
      default:
        return false;
    }
    registers_[REG_RIP] += length;
    return true;
  }

 private:
  std::uint32_t Accumulator() const { return static_cast<std::uint32_t>(registers_[REG_RAX]); }

  void Load(std::uint32_t value, unsigned width) {
    // A 32-bit load clears the upper half of the register, narrower ones leave the rest alone.
    const std::uint64_t mask = width == 4 ? ~std::uint64_t{0} : (std::uint64_t{1} << (8 * width)) - 1;
    const auto old = static_cast<std::uint64_t>(registers_[REG_RAX]);
    registers_[REG_RAX] = static_cast<greg_t>((old & ~mask) | (value & mask));
  }

  void OutString(PortBus& ports, std::uint16_t port, bool repeat) {
    const auto* source = reinterpret_cast<const std::uint8_t*>(registers_[REG_RSI]);
    const std::uint64_t count = repeat ? static_cast<std::uint64_t>(registers_[REG_RCX]) : 1;
    for (std::uint64_t i = 0; i < count; ++i) {
      ports.Out(port, source[i], 1);
    }
    registers_[REG_RSI] += static_cast<greg_t>(count);
    if (repeat) {
      registers_[REG_RCX] = 0;
    }
  }

  greg_t* registers_;
  const std::uint8_t* code_;
  bool wide_ = false;
};

void OnFault(int signal, siginfo_t* info, void* context) {
  greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  Machine& machine = Machine::Current();
  // A fetch that faulted has no instruction to decode; for everything else the bytes at RIP are readable.
  const bool fetch = reinterpret_cast<greg_t>(info->si_addr) == registers[REG_RIP];
  if (signal == SIGSEGV && !fetch && PortInstruction(registers).CarryOut(machine.Ports())) {
    return;
  }
  machine.EndBoot(BootEnd::Crashed, fmt::format("signal {} at 0x{:X}, address 0x{:X}", signal,
                                                static_cast<std::uint64_t>(registers[REG_RIP]),
                                                reinterpret_cast<std::uintptr_t>(info->si_addr)));
}

}  // namespace

CrashCatcher::CrashCatcher() {
  struct sigaction action {};
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &action, &old_[i]);
  }
}

CrashCatcher::~CrashCatcher() {
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &old_[i], nullptr);
  }
}

}  // namespace sim
