// Each class decodes its own kind at the faulting address; the bytes there were fetched, so they are readable.
#include "sim/firmware/instructions.h"

#include <sys/prctl.h>

#include "sim/firmware/machine.h"
#include "sim/firmware/port_thunks.h"

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
    ports.OutString(port, {source, count});
    registers_[REG_RSI] += static_cast<greg_t>(count);
    if (repeat) {
      registers_[REG_RCX] = 0;
    }
  }

  greg_t* registers_;
  const std::uint8_t* code_;
  bool wide_ = false;
};

// The time-stamp counter, read where PR_TSC_SIGSEGV forbids it (Intel SDM, volume 2: RDTSC, RDTSCP).
class CounterInstruction {
 public:
  explicit CounterInstruction(greg_t* registers)
      : registers_(registers), code_(reinterpret_cast<const std::uint8_t*>(registers[REG_RIP])) {}

  // False when it is none.
  bool CarryOut(Machine& machine) {
    const bool plain = code_[0] == 0x0F && code_[1] == 0x31;
    const bool withProcessor = code_[0] == 0x0F && code_[1] == 0x01 && code_[2] == 0xF9;
    if (!plain && !withProcessor) {
      return false;
    }
    const std::uint64_t value = OfImage() ? machine.Time().ReadTimeStampCounter() : HostCounter();
    registers_[REG_RAX] = static_cast<greg_t>(value & 0xFFFFFFFF);
    registers_[REG_RDX] = static_cast<greg_t>(value >> 32);
    if (withProcessor) {
      registers_[REG_RCX] = 0;
    }
    registers_[REG_RIP] += plain ? 2 : 3;
    return true;
  }

 private:
  // Images lie below, the host's own libraries, whose clock gets the host's time, above.
  bool OfImage() const { return reinterpret_cast<std::uintptr_t>(code_) < PageAllocator::kBase + PageAllocator::kSize; }
  static std::uint64_t HostCounter() {
    prctl(PR_SET_TSC, PR_TSC_ENABLE);
    const std::uint64_t value = __builtin_ia32_rdtsc();
    prctl(PR_SET_TSC, PR_TSC_SIGSEGV);
    return value;
  }

  greg_t* registers_;
  const std::uint8_t* code_;
};

// Instructions of privilege level 0 (Intel SDM, volume 2), as loaders use them around the hand-over to a kernel.
class PrivilegedInstruction {
 public:
  PrivilegedInstruction(greg_t* registers, ControlRegisters& control)
      : registers_(registers), control_(control), code_(reinterpret_cast<const std::uint8_t*>(registers[REG_RIP])) {}

  // False when it is none.
  bool CarryOut(Machine& machine) {
    switch (code_[0]) {
      case 0xFA:  // CLI, STI: no interrupt comes between two instructions here, timers fire inside services only
      case 0xFB:
        registers_[REG_RIP] += 1;
        return true;
      case 0xF4:  // HLT
        Halt(machine);
        registers_[REG_RIP] += 1;
        return true;
      case 0x0F:
        return CachesOrControl(code_, 0);
      default:
        break;
    }
    const bool extended = (code_[0] & 0xF0) == 0x40 && code_[1] == 0x0F;
    return extended && CachesOrControl(code_ + 1, code_[0]);
  }

 private:
  static void Halt(Machine& machine) {
    machine.Time().Step();
    if (!machine.Time().AdvanceToNextTimer() && !machine.Idle()) {
      machine.EndBoot(BootEnd::WaitsForever, "HLT, and no interrupt can come any more");
    }
  }

  bool CachesOrControl(const std::uint8_t* code, std::uint8_t prefix) {
    const std::size_t before = prefix == 0 ? 0 : 1;
    switch (code[1]) {
      case 0x06:  // CLTS
      case 0x08:  // INVD
      case 0x09:  // WBINVD
        registers_[REG_RIP] += static_cast<greg_t>(before + 2);
        return true;
      case 0x20:  // MOV r64, CRn
      case 0x22:  // MOV CRn, r64
        break;
      default:
        return false;
    }
    const std::size_t number = (code[2] >> 3 & 7) + ((prefix & 4) != 0 ? 8 : 0);
    const std::size_t general = (code[2] & 7) + ((prefix & 1) != 0 ? 8 : 0);
    // In the order of their encoding.
    static constexpr int kGeneral[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                                       REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
    if (code[1] == 0x20) {
      registers_[kGeneral[general]] = static_cast<greg_t>(control_.cr[number]);
    } else {
      control_.cr[number] = static_cast<std::uint64_t>(registers_[kGeneral[general]]);
    }
    registers_[REG_RIP] += static_cast<greg_t>(before + 3);
    return true;
  }

  greg_t* registers_;
  ControlRegisters& control_;
  const std::uint8_t* code_;
};

}  // namespace

bool CarryOutInstruction(greg_t* registers, Machine& machine, ControlRegisters& control) {
  const auto instruction = static_cast<std::uint64_t>(registers[REG_RIP]);
  if (PortInstruction(registers).CarryOut(machine.Ports())) {
    ShortenPortRoutine(registers, instruction);
    return true;
  }
  return CounterInstruction(registers).CarryOut(machine) || PrivilegedInstruction(registers, control).CarryOut(machine);
}

}  // namespace sim
