// A module for OpenIPMI's ipmi_sim, which by itself keeps nothing of the System Boot Options but the device selector.
// With it the simulator keeps them byte by byte, and takes the OEM request that makes a one-time policy stale.
//
// The answers are those of the simulated server's built-in BMC (sim/bmc/ipmi_model), so that both BMCs are one; here
// its clock is the computer's.
#include <algorithm>
#include <cstdio>
#include <map>
#include <span>
#include <vector>

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

  sys_data_t& Simulator() { return simulator_; }

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

// An answer longer than the simulator's own buffer, which holds 36 bytes where a block of the boot order table
// takes 38. The answer is put in at the last moment, when the simulator hands a cut one to the channel that the request
// came by.
class LongAnswer {
 public:
  void Keep(channel_t& channel, const msg_t* request, const sim::IpmiReply& reply) {
    request_ = request;
    bytes_ = reply.data;
    bytes_.insert(bytes_.begin(), reply.completion);
    if (channel.return_rsp != &PutIn) {
      channels_[&channel] = channel.return_rsp;
      channel.return_rsp = &PutIn;
    }
  }
  void Forget() { request_ = nullptr; }

 private:
  static void PutIn(channel_t* channel, msg_t* message, rsp_msg_t* answer) noexcept;

  const msg_t* request_ = nullptr;  // whose answer the bytes are; null: none
  std::vector<std::uint8_t> bytes_;
  std::map<channel_t*, decltype(channel_t::return_rsp)> channels_;
};

// The simulator ends without telling its modules, so these live as long as the process.
BootOptions* bootOptions = nullptr;
LongAnswer* longAnswer = nullptr;

void LongAnswer::PutIn(channel_t* channel, msg_t* message, rsp_msg_t* answer) noexcept {
  rsp_msg_t whole = *answer;
  if (longAnswer->request_ == message) {
    whole.data = longAnswer->bytes_.data();
    whole.data_len = static_cast<unsigned short>(longAnswer->bytes_.size());
  }
  longAnswer->channels_[channel](channel, message, &whole);
  longAnswer->Forget();
}

// The serial side does not fill in where a message came from, only the channel's number.
channel_t* ChannelOf(lmc_data_t& mc, const msg_t& message) {
  if (message.orig_channel != nullptr) {
    return message.orig_channel;
  }
  constexpr unsigned char kNumberMask = 0x0F;
  return bootOptions->Simulator().mc_get_channelset(&mc)[message.channel & kNumberMask];
}

// On entry *size is the room in answer; an answer is its completion code and what follows it.
void Handle(lmc_data_t* mc, msg_t* message, unsigned char* answer, unsigned int* size, void* /*context*/) noexcept {
  const sim::IpmiReply reply = bootOptions->Answer(message->netfn, message->cmd, {message->data, message->len});
  const std::size_t room = *size;
  longAnswer->Forget();
  answer[0] = reply.completion;
  *size = 1;
  if (reply.data.size() < room) {
    std::copy(reply.data.begin(), reply.data.end(), answer + 1);
    *size = static_cast<unsigned int>(reply.data.size() + 1);
  } else if (channel_t* channel = ChannelOf(*mc, *message); channel != nullptr) {
    longAnswer->Keep(*channel, message, reply);
  } else {
    answer[0] = kCannotReturnAll;
  }
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
  longAnswer = new LongAnswer;
  for (const auto& [netFn, command] : kCommands) {
    if (const int failure = ipmi_emu_register_cmd_handler(netFn, command, &Handle, nullptr); failure != 0) {
      return failure;
    }
  }
  return 0;
}

}  // extern "C"
