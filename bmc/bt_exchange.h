// One exchange of the BMC file transfer: a request to the BMC, its response back, within what a boot allows for waits.
#pragma once

#include "bmc/bt_frame.h"

namespace bds {

// How the last operation on a context ended; tells a file that is not there from a BMC that was not heard.
enum class BT_END : UINT8 {
  None,     // nothing was tried yet
  Valid,    // a well-formed answer of the length expected
  Refused,  // a sound answer of another length with at most a status byte: the BMC said no
  Garbled,  // not an answer to this request: another opcode, or a length that neither a yes nor a no has
  Silent,   // no good answer within the time or the number of tries allowed
  Locked,   // another agent holds the interface; nothing was sent
};

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

// Once waits without any answer in between come to this many microseconds, this boot asks the BMC for nothing more:
// further exchanges fail at once as timeouts, so that a dead BMC costs a boot a small time, however many files are
// asked for. Two lost answers, 10 s, are no dead BMC.
inline constexpr UINT64 kBtPatience = 11'000'000;
// The same after all exchanges, those that ended well among them, for a BMC that always answers but hardly in time, or
// only to some requests.
inline constexpr UINT64 kBtEndurance = 300'000'000;

// True when this boot asks the BMC for nothing more.
[[nodiscard]] bool BtAllowanceIsSpent();

// Sends Opcode with length - 2 bytes of RequestArgs and receives the response, whose L' must be expectedLength
// unless that is 0. 0 on success, 1 on failure. Waits at most 1 s for a busy BMC and 5 s for each answer; an answer
// with a bad checksum is asked for again after 1 s, up to 100 times. While an answer to an earlier request is owed,
// first catches up with the BMC. Fails without a request when length is not 2 to 63; refuses a response that would not
// fit into ResponseData.
[[nodiscard]] UINT8 BtExchange(BT_FILE_CONTEXT& context, UINT8 length, UINT8 expectedLength);

}  // namespace bds
