// The chassis System Boot Options (IPMI 2.0, 28.12 to 28.14): parameters read, written and waited for.
#pragma once

#include <span>

#include "bmc/ipmi_transport.h"

namespace bds {

enum BOOT_OPTIONS_PARAMETER : UINT8 {
  kSetInProgress = 0x00,
  kBootInfoAcknowledge = 0x04,
  kBootFlags = 0x05,
  kBotBlockSize = 0x78,  // OEM: the block size of the boot order table
  kBotBlock = 0x7D,      // OEM: a block of the boot order table, numbered from 1
};

// An answer begins with the parameter version and the parameter selector; the data follows.
inline constexpr UINTN kParameterData = 2;
inline constexpr UINTN kBootFlagsAnswerSize = 7;

// Reads a parameter once. On success answer holds it; its size is not compared with what was asked for.
// A failure is logged.
[[nodiscard]] EFI_STATUS GetBootOptions(IpmiTransport& transport, UINT8 parameter, std::span<UINT8> answer);
// Writes a parameter once: its number, then its data.
[[nodiscard]] EFI_STATUS SetBootOptions(IpmiTransport& transport, std::span<const UINT8> request);

// Whether the wait below logs a transport error: the boot flags' way does, the boot order table's way does not.
enum class WaitLog : UINT8 { Errors, Nothing };

// Waits until no one is setting parameters: at most 11 queries, 1 ms apart. EFI_TIMEOUT after those; a transport
// error ends the wait with its status.
[[nodiscard]] EFI_STATUS WaitSetInProgressClear(IpmiTransport& transport, WaitLog log);

// The same requests tried five times, 2 s after each failure; the last failure's status.
[[nodiscard]] EFI_STATUS GetBootOptionsPersistently(IpmiTransport& transport, UINT8 parameter, UINT8 block,
                                                    std::span<UINT8> answer);
[[nodiscard]] EFI_STATUS SetBootOptionsPersistently(IpmiTransport& transport, std::span<const UINT8> request);
// Tells the BMC that the one-time policy was used (an OEM request).
[[nodiscard]] EFI_STATUS SendOneTimeStaleRequest(IpmiTransport& transport);

}  // namespace bds
