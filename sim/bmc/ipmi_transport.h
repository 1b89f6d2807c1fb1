// The platform's IPMI transport protocol over whoever answers: the built-in model or a BMC simulator behind a socket.
#pragma once

#include "platform/ipmi_transport.h"
#include "sim/bmc/ipmi_exchange.h"
#include "sim/firmware/counters.h"

namespace sim {

class IpmiTransportDevice {
 public:
  static constexpr Ticks kRequestTime = 500 * kMicrosecond;
  static constexpr Ticks kSilenceTime = 5 * kSecond;  // until a request without an answer is given up

  // Counted as "ipmi.requests", "ipmi.errors" (completion codes) and "ipmi.timeouts".
  IpmiTransportDevice(IpmiResponder& responder, Clock& clock, Counters& counters);
  IpmiTransportDevice(const IpmiTransportDevice&) = delete;
  IpmiTransportDevice& operator=(const IpmiTransportDevice&) = delete;

  // To be installed under its GUID.
  DXE_IPMI_TRANSPORT_PROTOCOL* Protocol() { return &interface_.protocol; }

  // Asked before each request with its number, from 1: the status to answer in its place, if any.
  std::function<std::optional<EFI_STATUS>(std::uint64_t nth)> onRequest;
  // Called with each request and its answer, and with one line about it.
  std::function<void(const IpmiExchange& exchange)> onExchange;
  std::function<void(const std::string& line)> onTraffic;

 private:
  // The protocol comes first, so that the driver's pointer leads back to the device.
  struct Interface {
    DXE_IPMI_TRANSPORT_PROTOCOL protocol{};
    IpmiTransportDevice* device = nullptr;
  };
  static EFI_STATUS EFIAPI SendCommand(DXE_IPMI_TRANSPORT_PROTOCOL* self, UINT8 netFn, UINT8 lun, UINT8 command,
                                       UINT8* request, UINT8 requestSize, UINT8* response, UINT8* responseSize);
  EFI_STATUS Send(UINT8 netFn, UINT8 command, std::span<const UINT8> request, UINT8* response, UINT8* responseSize);

  Interface interface_;
  IpmiResponder& responder_;
  Clock& clock_;
  Counters& counters_;
  std::uint64_t requests_ = 0;
};

}  // namespace sim
