// The boot order table on its way to and from the BMC, block by block. The BMC numbers blocks from 1, in a byte.
#pragma once

#include "bmc/boot_options_parameters.h"
#include "support/byte_reader.h"

namespace bds {

// Reads the BMC's table into the buffer, which has room for size bytes. On success size is the table's Length and
// kBotTail zero bytes behind it.
// EFI_DEVICE_ERROR, EFI_OUT_OF_RESOURCES: no block size, or one that cannot be; EFI_NOT_FOUND: the BMC has no table;
// EFI_BUFFER_TOO_SMALL: size becomes what is needed; EFI_CRC_ERROR: a wrong sum, size becomes 0; or a status of the
// transport.
[[nodiscard]] EFI_STATUS ReadBMCBOT(IpmiTransport& transport, std::byte* buffer, UINT16& size);
inline constexpr UINTN kBotTail = 36;

// Sends a table; bytes behind its Length are left out. EFI_INVALID_PARAMETER, EFI_CRC_ERROR: it is none, or its sum is
// wrong; EFI_DEVICE_ERROR, EFI_OUT_OF_RESOURCES: no block size, one that cannot be, or more blocks than have a number;
// or a status of the transport. A block that the BMC does not take ends the sending, which counts as a success: the
// copy in NVRAM is then what the next boot repairs the BMC's table with.
[[nodiscard]] EFI_STATUS WriteBMCBOT(IpmiTransport& transport, Bytes table);

}  // namespace bds
