// While a boot runs, faults of the processor are caught: a port instruction of the EFI image is carried out on the
// simulated ports and its time-stamp counter is the virtual one; anything else, a system call from an image's pages
// too, ends the boot with the place named.
#pragma once

#include <csignal>
#include <cstddef>
#include <iterator>
#include <string>

#include "sim/firmware/instructions.h"

namespace sim {

class CrashCatcher {
 public:
  CrashCatcher();
  ~CrashCatcher();
  CrashCatcher(const CrashCatcher&) = delete;
  CrashCatcher& operator=(const CrashCatcher&) = delete;

  // The handler has a stack of its own, since the fault may be that the stack is used up. Port handlers and the timer
  // notifications that fall due meanwhile run on it too.
  bool OnHandlerStack(const void* address) const;
  const std::byte* HandlerStackEnd() const;
  // False where the kernel has no system call user dispatch: then no foreign code may run.
  bool RefusesSystemCalls() const { return refusesSystemCalls_; }
  // While the handler runs: the lowest byte in use of the stack that it interrupted.
  const std::byte* InterruptedStack() const { return interrupted_; }

 private:
  static void OnFault(int signal, siginfo_t* info, void* context);

  static constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS};
  struct sigaction old_[std::size(kSignals)];
  stack_t oldStack_;
  int oldCounterMode_;
  bool refusesSystemCalls_ = false;
  const std::byte* interrupted_ = nullptr;
  ControlRegisters control_;
  std::string crash_;  // what ends the boot; empty before
};

}  // namespace sim
