// IPMI requests answered by a BMC simulator behind its virtual-machine serial socket on this machine.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "sim/bmc/ipmi_model.h"
#include "sim/bmc/vm_codec.h"

namespace sim {

class VmClient : public IpmiResponder {
 public:
  // How long, in real time, connecting and each answer may take.
  static constexpr std::chrono::milliseconds kPatience{3000};

  // After each request that was answered as done.
  std::function<void(std::uint8_t netFn, std::uint8_t command)> onDone;

  explicit VmClient(std::chrono::milliseconds patience = kPatience) : patience_(patience) {}
  VmClient(const VmClient&) = delete;
  VmClient& operator=(const VmClient&) = delete;
  ~VmClient() override;

  // "vm://127.0.0.1:PORT": only this machine. False with `error` set when it is not that.
  static bool ParseAddress(std::string_view address, std::uint16_t& port, std::string& error);

  // False with `error` set when no simulator listens there.
  bool Connect(std::string_view address, std::string& error);

  std::optional<IpmiReply> Request(std::uint8_t netFn, std::uint8_t command,
                                   std::span<const std::uint8_t> data) override;

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  bool WaitFor(short events, Deadline deadline);
  bool SendAll(std::span<const std::uint8_t> bytes, Deadline deadline);
  std::optional<IpmiReply> AwaitReply(std::uint8_t netFn, std::uint8_t command, Deadline deadline);
  void Disconnect();

  std::chrono::milliseconds patience_;
  int socket_ = -1;
  std::uint8_t sequence_ = 0;
  VmDecoder decoder_;
};

}  // namespace sim
