// While a boot runs, faults of the processor are caught: a port instruction of the EFI image is carried out on the
// simulated ports, anything else ends the boot with the place named.
#pragma once

#include <csignal>

namespace sim {

class CrashCatcher {
 public:
  CrashCatcher();
  ~CrashCatcher();
  CrashCatcher(const CrashCatcher&) = delete;
  CrashCatcher& operator=(const CrashCatcher&) = delete;

 private:
  static constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};
  struct sigaction old_[4];
};

}  // namespace sim
