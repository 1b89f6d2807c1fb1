// While a boot runs, faults of the processor are caught: a port instruction of the EFI image is carried out on the
// simulated ports and its time-stamp counter is the virtual one; anything else ends the boot with the place named.
#pragma once

#include <csignal>
#include <cstddef>
#include <string>

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
  // While the handler runs: the lowest byte in use of the stack that it interrupted.
  const std::byte* InterruptedStack() const { return interrupted_; }

 private:
  static void OnFault(int signal, siginfo_t* info, void* context);

  static constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};
  struct sigaction old_[4];
  stack_t oldStack_;
  int oldCounterMode_;
  const std::byte* interrupted_ = nullptr;
  std::string crash_;  // what ends the boot; empty before
};

}  // namespace sim
