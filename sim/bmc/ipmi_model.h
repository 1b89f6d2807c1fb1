// Who answers the server's IPMI requests, and the built-in answerer: a model of the BMC's System Boot Options.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "sim/bmc/bmc_state.h"
#include "sim/firmware/clock.h"

namespace sim {

// Completion codes (IPMI 2.0, table 5-2 and the commands' own).
inline constexpr std::uint8_t kIpmiDone = 0x00;
inline constexpr std::uint8_t kIpmiParameterUnsupported = 0x80;
inline constexpr std::uint8_t kIpmiSetAlreadyInProgress = 0x81;
inline constexpr std::uint8_t kIpmiReadOnly = 0x82;
inline constexpr std::uint8_t kIpmiInvalidCommand = 0xC1;
inline constexpr std::uint8_t kIpmiLengthInvalid = 0xC7;
inline constexpr std::uint8_t kIpmiOutOfRange = 0xC9;

struct IpmiReply {
  std::uint8_t completion = kIpmiDone;
  std::vector<std::uint8_t> data;  // behind the completion code
};

class IpmiResponder {
 public:
  virtual ~IpmiResponder() = default;
  // Empty when no answer came.
  virtual std::optional<IpmiReply> Request(std::uint8_t netFn, std::uint8_t command,
                                           std::span<const std::uint8_t> data) = 0;
};

// Parameters 0, 3, 4, 5, 0x78 and 0x7D byte by byte, and the OEM request that makes a one-time policy stale.
class IpmiModel : public IpmiResponder {
 public:
  static constexpr Ticks kFlagsLifetime = 60 * kSecond;  // of a valid bit that no start of the server follows
  static constexpr std::size_t kTableBytesPerAnswer = 35;

  struct Events {
    std::function<void()> onChange;        // after a request that changed the state
    std::function<void()> onOneTimeStale;  // after the OEM request
  };

  // The OEM request's network function and command.
  static bool IsOneTimeStale(std::uint8_t netFn, std::uint8_t command);

  // The state is the caller's and outlives the model. A request that it holds at the start has been followed by the
  // start of the server and does not expire.
  IpmiModel(BmcState& state, const Clock& clock, Events events);

  std::optional<IpmiReply> Request(std::uint8_t netFn, std::uint8_t command,
                                   std::span<const std::uint8_t> data) override;

 private:
  IpmiReply Get(std::span<const std::uint8_t> request);
  IpmiReply Set(std::span<const std::uint8_t> request);
  IpmiReply SetBootFlags(std::span<const std::uint8_t> data);
  IpmiReply SetTableBlock(std::span<const std::uint8_t> data);
  IpmiReply Oem(std::span<const std::uint8_t> request);
  std::vector<std::uint8_t> BlockSizeRecord() const;
  void ExpireFlags();

  BmcState& state_;
  const Clock& clock_;
  Events events_;
  std::optional<Ticks> expiresAt_;
};

}  // namespace sim
