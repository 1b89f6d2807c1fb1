// One IPMI request through the platform's transport.
#pragma once

#include <span>

#include "platform/ipmi_transport.h"

namespace bds {

using IpmiTransport = DXE_IPMI_TRANSPORT_PROTOCOL;

inline constexpr UINT8 kIpmiChassis = 0x00;  // network function
inline constexpr UINT8 kIpmiOem = 0x36;

// Sends request (at most 255 bytes) to LUN 0 and puts the answer behind the completion code into answer (at most 255
// bytes), whose bytes that were not answered are 0. The transport's status; a completion code is an error of it.
[[nodiscard]] EFI_STATUS SendIpmiCommand(IpmiTransport& transport, UINT8 netFn, UINT8 command,
                                         std::span<const UINT8> request, std::span<UINT8> answer);

}  // namespace bds
