// The frames of the BMC file transfer and the handshake of the registers that carry them.
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

inline constexpr UINTN kBtResponseCapacity = 62;
inline constexpr UINTN kBtArgumentCapacity = 61;
inline constexpr UINT8 kBtFrameOverhead = 2;  // length and opcode bytes

// What the waits for one exchange have cost so far.
struct BtWaiting {
  UINT64 Microseconds = 0;
  UINT64 SinceAnswer = 0;  // the part of them since the BMC last showed that it is alive
  void Stall(UINT32 microseconds);
};

// Waits until the BMC has taken the request before; false after 1 s.
[[nodiscard]] bool WaitForFreeInterface(BtWaiting& waiting);

// How long an answer is waited for: 5 s, in polls.
inline constexpr UINT32 kBtAnswerPolls = 5 * 1000;
// Waits until an answer is there; false once all polls are used up. polls keeps what is left of them.
[[nodiscard]] bool WaitForAnswer(UINT32& polls, BtWaiting& waiting);
[[nodiscard]] bool AnswerIsThere();

// Hands a request of that L over; there are L - 2 arguments.
void SendBtRequest(UINT8 length, UINT8 opcode, const UINT8* arguments);

enum class BT_RESPONSE : UINT8 {
  Valid,
  Refused,  // sound, but of another length than the one expected, with at most a status byte: the BMC said no
  Garbled,  // not an answer to the request: another opcode, or a length that neither a yes nor a no has
  BadChecksum,
};

struct BtAnswer {
  UINT8 Opcode = 0;
  UINT8 DataLength = 0;
  UINT8 Data[kBtResponseCapacity];
};

// Reads the answer that is there. With an opcode of 0 every echo will do, with an expected L' of 0 every length.
// answer holds a Valid or a Refused one.
[[nodiscard]] BT_RESPONSE ReceiveBtResponse(UINT8 opcode, UINT8 expectedLength, BtAnswer& answer);

// Takes the answer that is there without reading it.
void DropBtResponse();

}  // namespace bds
