// One IPMI request through the platform's transport.
#include "bmc/ipmi_transport.h"

#include "support/memory.h"

namespace bds {

EFI_STATUS SendIpmiCommand(IpmiTransport& transport, UINT8 netFn, UINT8 command, std::span<const UINT8> request,
                           std::span<UINT8> answer) {
  if (request.size() > 0xFF || answer.size() > 0xFF) {
    return EFI_BAD_BUFFER_SIZE;
  }
  UINT8 sent[0xFF] = {};  // the transport may use the buffer it is given
  CopyMemory(sent, request.data(), request.size());
  ZeroMemory(answer.data(), answer.size());
  UINT8 answerSize = static_cast<UINT8>(answer.size());
  return transport.SendCommand(&transport, netFn, 0, command, sent, static_cast<UINT8>(request.size()),
                               answer.data(), &answerSize);
}

}  // namespace bds
