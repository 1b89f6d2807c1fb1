// One IPMI request of the server's as it passed, for whoever watches.
#pragma once

#include <cstdint>
#include <span>

#include "sim/bmc/ipmi_model.h"

namespace sim {

struct IpmiExchange {
  std::uint8_t netFn = 0;
  std::uint8_t command = 0;
  std::span<const std::uint8_t> request;
  const IpmiReply* reply = nullptr;  // null: no answer came
};

}  // namespace sim
