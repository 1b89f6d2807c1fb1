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
  if (forbidden && CarryOutInstruction(registers, machine, gCatcher->control_)) {
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
