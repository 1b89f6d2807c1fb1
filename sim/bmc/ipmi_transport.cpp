// The platform's IPMI transport protocol.
#include "sim/bmc/ipmi_transport.h"

#include <algorithm>
#include <string>

#include <fmt/format.h>

#include "sim/bmc/traffic_text.h"

namespace sim {

IpmiTransportDevice::IpmiTransportDevice(IpmiResponder& responder, Clock& clock, Counters& counters)
    : responder_(responder), clock_(clock), counters_(counters) {
  interface_.protocol.Revision = 1;
  interface_.protocol.BmcSlaveAddress = 0x20;
  interface_.protocol.SendCommand = &SendCommand;
  interface_.device = this;
}

EFI_STATUS EFIAPI IpmiTransportDevice::SendCommand(DXE_IPMI_TRANSPORT_PROTOCOL* self, UINT8 netFn, UINT8 lun,
                                                   UINT8 command, UINT8* request, UINT8 requestSize, UINT8* response,
                                                   UINT8* responseSize) {
  IpmiTransportDevice& device = *reinterpret_cast<Interface*>(self)->device;
  if (lun != 0 || responseSize == nullptr || (requestSize != 0 && request == nullptr) ||
      (*responseSize != 0 && response == nullptr)) {
    device.counters_.Complain(fmt::format("IPMI transport: request {:x}/{:x} with wrong arguments", netFn, command));
    return EFI_INVALID_PARAMETER;
  }
  return device.Send(netFn, command, {request, requestSize}, response, responseSize);
}

EFI_STATUS IpmiTransportDevice::Send(UINT8 netFn, UINT8 command, std::span<const UINT8> request, UINT8* response,
                                     UINT8* responseSize) {
  ++requests_;
  counters_.Add("ipmi.requests");
  clock_.Advance(kRequestTime);
  if (onRequest) {
    if (const auto status = onRequest(requests_)) {
      return *status;
    }
  }
  const std::optional<IpmiReply> reply = responder_.Request(netFn, command, request);
  if (onExchange) {
    onExchange({netFn, command, request, reply ? &*reply : nullptr});
  }
  if (onTraffic) {
    const std::string answer =
        reply ? fmt::format("{:02x} {}", reply->completion, TrafficBytes(reply->data, kWholeTraffic)) : "";
    onTraffic(fmt::format("IPMI {:02x}/{:02x} > {} < {}", netFn, command, TrafficBytes(request, kWholeTraffic),
                          reply ? answer : "no answer [timeout]"));
  }
  if (!reply) {
    counters_.Add("ipmi.timeouts");
    clock_.Advance(kSilenceTime);
    return EFI_TIMEOUT;
  }
  if (reply->completion != kIpmiDone) {
    counters_.Add("ipmi.errors");
    *responseSize = 0;
    return EFI_DEVICE_ERROR;
  }
  const std::size_t room = *responseSize;
  std::copy_n(reply->data.begin(), std::min(room, reply->data.size()), response);
  *responseSize = static_cast<UINT8>(std::min<std::size_t>(reply->data.size(), 0xFF));
  return reply->data.size() > room ? EFI_BUFFER_TOO_SMALL : EFI_SUCCESS;
}

}  // namespace sim
