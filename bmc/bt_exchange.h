// One exchange of the BMC file transfer: a request frame to the BMC, its response frame back, both checksummed.
//
// Request: L, opcode, arguments, checksum; response: L', the opcode again, data, checksum. L counts itself and
// everything behind it but the checksum; all bytes of a frame sum to 0 modulo 256.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

enum BT_OPCODE : UINT8 {
  BT_CREATE_FILE = 6,
  BT_READ_PIECE = 7,
  BT_WRITE_PIECE = 8,
  BT_CLOSE_FILE = 9,
  BT_OPEN_FILE = 12,
  BT_RENAME_FILE = 16,
  BT_CLOSE_VARIABLE_FILE = 18,
};

// How the last operation on a context ended; tells a file that is not there from a BMC that was not heard.
enum class BT_END : UINT8 {
  None,     // nothing was tried yet
  Valid,    // a well-formed answer of the length expected
  Refused,  // an answer of another length with at most a status byte: the BMC said no
  Garbled,  // not an answer to this request: another opcode, or a length that neither a yes nor a no has
  Silent,   // no good answer within the time or the number of tries allowed
  Locked,   // another agent holds the interface; nothing was sent
};

inline constexpr UINTN kBtResponseCapacity = 62;
inline constexpr UINTN kBtArgumentCapacity = 61;

// One open file, or one attempt at it; the caller owns it. All fields are zero at start.
struct BT_FILE_CONTEXT {
  UINT8 ResponseData[kBtResponseCapacity] = {};  // data of the last valid response
  UINT8 DataOffset = 0;                          // 2 after an exchange whose length was not fixed
  UINT8 Opcode = 0;                              // of the request being built
  UINT8 RequestArgs[kBtArgumentCapacity] = {};   // arguments of the request being built
  UINT8 ResponseLength = 0;                      // data bytes of the last valid response of no fixed length
  UINT16 Handle = 0;                             // from the last successful open
  UINT8 PieceLength = 0;                         // L - 1 of the write piece being sent
  UINT32 SuccessCount = 0;                       // exchanges ended with a valid response
  UINT32 RetryCount = 0;                         // responses rejected for a bad checksum
  UINT32 TimeoutCount = 0;                       // exchanges abandoned for a timeout
  UINT8 IsOpen = 0;                              // 1 after an open; 0 after a failed open, read, write or close
  char Name[24] = {};                            // the caller's copy of the file name
  BT_END LastEnd = BT_END::None;
};

// True when the last operation failed, or was not tried, without the BMC having said anything about it.
inline bool BtUnheard(const BT_FILE_CONTEXT& context) {
  return context.LastEnd != BT_END::Valid && context.LastEnd != BT_END::Refused;
}

// After failed exchanges have waited this many microseconds in one boot, further ones fail at once as timeouts, so
// that a dead BMC delays a boot by a bounded time whatever the number of files asked for.
inline constexpr UINT64 kBtPatience = 10'000'000;
// The same after all exchanges, those that ended well among them, for a BMC that always answers but hardly in time.
inline constexpr UINT64 kBtEndurance = 300'000'000;

// True when this boot asks the BMC for nothing more.
[[nodiscard]] bool BtAllowanceIsSpent();

// Sends Opcode with length - 2 bytes of RequestArgs and receives the response, whose L' must be expectedLength
// unless that is 0. 0 on success, 1 on failure. Waits at most 1 s for a busy BMC and 5 s for each answer; an answer
// with a bad checksum is asked for again after 1 s, up to 100 times. Fails without a request when length is not 2 to
// 63; refuses a response that would not fit into ResponseData.
[[nodiscard]] UINT8 BtExchange(BT_FILE_CONTEXT& context, UINT8 length, UINT8 expectedLength);

}  // namespace bds
