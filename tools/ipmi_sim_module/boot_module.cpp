// A module for OpenIPMI's ipmi_sim, which by itself keeps nothing of the System Boot Options but the device selector.
// With it the simulator keeps them byte by byte, and takes the OEM request that makes a one-time policy stale.
//
// The answers are those of the simulated server's built-in BMC (sim/bmc/ipmi_model), so that both BMCs are one; here
// its clock is the computer's.
#include <algorithm>
#include <cstdio>
#include <span>

// They are C and do not say so to C++.
extern "C" {
#include <OpenIPMI/lanserv.h>
#include <OpenIPMI/mcserv.h>
}

#include "sim/bmc/ipmi_model.h"

namespace {

struct Command {
  unsigned char netFn;
  unsigned char command;
};
constexpr Command kCommands[] = {
    {0x00, 0x08},  // Set System Boot Options
    {0x00, 0x09},  // Get System Boot Options
    {0x36, 0x16},  // a one-time policy was used
};

constexpr unsigned char kCannotReturnAll = 0xCA;  // IPMI 2.0, table 5-2

class BootOptions {
 public:
  explicit BootOptions(sys_data_t& simulator) : simulator_(simulator), last_(Now()) {}

  sim::IpmiReply Answer(unsigned char netFn, unsigned char command, std::span<const std::uint8_t> data) {
    const sim::Ticks now = Now();
    clock_.Advance(now - std::min(last_, now));
    last_ = now;
    return model_.Request(netFn, command, data).value_or(sim::IpmiReply{sim::kIpmiInvalidCommand, {}});
  }

 private:
  sim::Ticks Now() const {
    timeval now{};
    simulator_.get_monotonic_time(&simulator_, &now);
    return static_cast<sim::Ticks>(now.tv_sec) * sim::kSecond +
           static_cast<sim::Ticks>(now.tv_usec) * sim::kMicrosecond;
  }

  sys_data_t& simulator_;
  sim::Ticks last_;
  sim::Clock clock_;
  sim::BmcState state_;
  sim::IpmiModel model_{state_, clock_, {}};
};

// The simulator ends without telling its modules, so this lives as long as the process.
BootOptions* bootOptions = nullptr;

// On entry *size is the room in answer; an answer is its completion code and what follows it.
void Handle(lmc_data_t* /*mc*/, msg_t* message, unsigned char* answer, unsigned int* size, void* /*context*/) noexcept {
  const sim::IpmiReply reply = bootOptions->Answer(message->netfn, message->cmd, {message->data, message->len});
  const std::size_t room = *size;
  if (room <= reply.data.size()) {
    answer[0] = kCannotReturnAll;
    *size = 1;
    return;
  }
  answer[0] = reply.completion;
  std::copy(reply.data.begin(), reply.data.end(), answer + 1);
  *size = static_cast<unsigned int>(reply.data.size() + 1);
}

}  // namespace

// What ipmi_sim looks up in a module (ipmi_lan(5), "loadlib"); init answers 0 or an errno value.
extern "C" {

__attribute__((visibility("default"))) int ipmi_sim_module_print_version(sys_data_t* /*sys*/, const char* /*options*/) {
  std::puts("System Boot Options, byte by byte: version 1");
  return 0;
}

__attribute__((visibility("default"))) int ipmi_sim_module_init(sys_data_t* sys, const char* /*options*/) {
  bootOptions = new BootOptions(*sys);
  for (const auto& [netFn, command] : kCommands) {
    if (const int failure = ipmi_emu_register_cmd_handler(netFn, command, &Handle, nullptr); failure != 0) {
      return failure;
    }
  }
  return 0;
}

}  // extern "C"
