#include "sim/firmware/crash_catcher.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <ucontext.h>

#include <cstdint>
#include <stdexcept>

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
  // Code of loaded images lies in allocated pages. The host's own libraries (its clock) get the host's time.
  bool OfImage() const {
    const auto at = reinterpret_cast<std::uintptr_t>(code_);
    return at >= PageAllocator::kBase && at - PageAllocator::kBase < PageAllocator::kSize;
  }
  static std::uint64_t HostCounter() {
    prctl(PR_SET_TSC, PR_TSC_ENABLE);
    const std::uint64_t value = __builtin_ia32_rdtsc();
    prctl(PR_SET_TSC, PR_TSC_SIGSEGV);
    return value;
  }

  greg_t* registers_;
  const std::uint8_t* code_;
};

constexpr std::size_t kHandlerStackSize = 4 * 1024 * 1024;
constexpr std::size_t kGuardSize = 64 * 1024;
constexpr std::size_t kRedZone = 128;  // below the stack pointer, in use without being reserved (System V ABI, 3.2.2)

// Images lie below, this program and its libraries above: only code from there reaches the kernel.
constexpr std::uint64_t kHostCode = PageAllocator::kBase + PageAllocator::kSize;
constexpr int kUserDispatch = 2;  // si_code of Linux (asm-generic/siginfo.h), which the C library does not name
constexpr std::uint64_t kUserSpaceEnd = std::uint64_t{1} << 47;

CrashCatcher* gCatcher = nullptr;

// Mapped once per process, unreadable at its lower end.
std::byte* HandlerStack() {
  static std::byte* const stack = [] {
    void* mapped = mmap(nullptr, kGuardSize + kHandlerStackSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED || mprotect(mapped, kGuardSize, PROT_NONE) != 0) {
      throw std::runtime_error("no memory for the stack of the fault handler");
    }
    return static_cast<std::byte*>(mapped) + kGuardSize;
  }();
  return stack;
}

}  // namespace

bool CrashCatcher::OnHandlerStack(const void* address) const {
  return address >= HandlerStack() && address < HandlerStackEnd();
}

const std::byte* CrashCatcher::HandlerStackEnd() const { return HandlerStack() + kHandlerStackSize; }

void CrashCatcher::OnFault(int signal, siginfo_t* info, void* context) {
  greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const auto* stack = reinterpret_cast<const std::byte*>(registers[REG_RSP]);
  if (!gCatcher->OnHandlerStack(stack)) {
    gCatcher->interrupted_ = stack - kRedZone;
  }
  Machine& machine = Machine::Current();
  // A forbidden instruction is a general protection fault, which the kernel reports without an address of its own; the
  // bytes at RIP were fetched, so they are readable.
  const bool forbidden = signal == SIGSEGV && info->si_code == SI_KERNEL;
  if (forbidden &&
      (PortInstruction(registers).CarryOut(machine.Ports()) || CounterInstruction(registers).CarryOut(machine))) {
    return;
  }
  std::string& crash = gCatcher->crash_;
  if (!crash.empty()) {
    // Ending the boot faulted in its turn: the search for leaks ran into a stack that was used up. It is left out.
    machine.SetDriver(nullptr, {});
    machine.EndBoot(BootEnd::Crashed, crash);
  }
  const auto at = static_cast<std::uint64_t>(registers[REG_RIP]);
  if (signal == SIGSYS && info->si_code == kUserDispatch) {
    // RIP lies behind the instruction (SYSCALL and INT 80h are two bytes long).
    crash =
        fmt::format("the image made a system call (number {}) at 0x{:X}; firmware has none", info->si_syscall, at - 2);
  } else {
    crash =
        fmt::format("signal {} at 0x{:X}, address 0x{:X}", signal, at, reinterpret_cast<std::uintptr_t>(info->si_addr));
  }
  machine.EndBoot(BootEnd::Crashed, crash);
}

CrashCatcher::CrashCatcher() {
  gCatcher = this;
  stack_t stack{};
  stack.ss_sp = HandlerStack();
  stack.ss_size = kHandlerStackSize;
  sigaltstack(&stack, &oldStack_);
  struct sigaction action {};
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &action, &old_[i]);
  }
  refusesSystemCalls_ =
      prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, kHostCode, kUserSpaceEnd - kHostCode, nullptr) == 0;
  // Where the kernel cannot forbid it, an image reads the host's counter.
  if (prctl(PR_GET_TSC, &oldCounterMode_) != 0) {
    oldCounterMode_ = PR_TSC_ENABLE;
  }
  prctl(PR_SET_TSC, PR_TSC_SIGSEGV);
}

CrashCatcher::~CrashCatcher() {
  prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_OFF, 0, 0, 0);
  prctl(PR_SET_TSC, oldCounterMode_);
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &old_[i], nullptr);
  }
  sigaltstack(&oldStack_, nullptr);
  gCatcher = nullptr;
}

}  // namespace sim
