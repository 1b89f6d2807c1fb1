#include "bmc/bt_frame.h"

#include "bmc/bt_registers.h"
#include "bmc/pm_timer.h"
#include "platform/io_ports.h"
#include "support/memory.h"

namespace bds {
namespace {

constexpr UINT32 kPollInterval = 1000;  // microseconds
constexpr UINT32 kBusyPolls = 1000;     // 1 s
constexpr UINT8 kMaxRefusalData = 1;    // a status byte; a longer answer of a wrong length says nothing

// Polls until the control bits are all set (or all clear); false when the polls are used up, with a pause behind each.
bool WaitForControl(UINT8 bits, bool set, UINT32& polls, BtWaiting& waiting) {
  while (((IoRead8(kBtControlPort) & bits) != 0) != set) {
    if (polls == 0) {
      return false;
    }
    --polls;
    waiting.Stall(kPollInterval);
  }
  return true;
}

bool IsNo(UINT8 length) { return length >= kBtFrameOverhead && length <= kBtFrameOverhead + kMaxRefusalData; }

// Reads the frame's bytes, and of one that cannot be the answer no more than tells so.
BT_RESPONSE ReadFrame(UINT8 opcode, UINT8 expectedLength, BtAnswer& answer) {
  const UINT8 length = IoRead8(kBtBufferPort);
  const bool expected = expectedLength == 0 || length == expectedLength;
  if (length < kBtFrameOverhead || length - kBtFrameOverhead > static_cast<int>(kBtResponseCapacity) ||
      (!expected && !IsNo(length))) {
    return BT_RESPONSE::Garbled;
  }
  answer.Opcode = IoRead8(kBtBufferPort);
  if (opcode != 0 && answer.Opcode != opcode) {
    return BT_RESPONSE::Garbled;
  }
  answer.DataLength = static_cast<UINT8>(length - kBtFrameOverhead);
  UINT8 sum = static_cast<UINT8>(length + answer.Opcode);
  for (UINT8 i = 0; i < answer.DataLength; ++i) {
    answer.Data[i] = IoRead8(kBtBufferPort);
    sum = static_cast<UINT8>(sum + answer.Data[i]);
  }
  sum = static_cast<UINT8>(sum + IoRead8(kBtBufferPort));
  if (expected) {
    return sum == 0 ? BT_RESPONSE::Valid : BT_RESPONSE::BadChecksum;
  }
  return sum == 0 ? BT_RESPONSE::Refused : BT_RESPONSE::Garbled;
}

void TakeAnswer() {
  IoWrite8(kBtControlPort, BT_H_BUSY);
  IoWrite8(kBtControlPort, BT_CLR_RD_PTR | BT_B2H_ATN);
}

void GiveBack() { IoWrite8(kBtControlPort, BT_H_BUSY); }

}  // namespace

void BtWaiting::Stall(UINT32 microseconds) {
  PmTimerStall(microseconds);
  Microseconds += microseconds;
  SinceAnswer += microseconds;
}

bool WaitForFreeInterface(BtWaiting& waiting) {
  UINT32 polls = kBusyPolls;
  return WaitForControl(BT_H2B_ATN, false, polls, waiting);
}

bool WaitForAnswer(UINT32& polls, BtWaiting& waiting) { return WaitForControl(BT_B2H_ATN, true, polls, waiting); }

bool AnswerIsThere() { return (IoRead8(kBtControlPort) & BT_B2H_ATN) != 0; }

void SendBtRequest(UINT8 length, UINT8 opcode, const UINT8* arguments) {
  UINT8 frame[kBtFrameOverhead + kBtArgumentCapacity + 1] = {length, opcode};
  CopyMemory(frame + kBtFrameOverhead, arguments, length - kBtFrameOverhead);
  UINT8 sum = 0;
  for (UINT8 i = 0; i < length; ++i) {
    sum = static_cast<UINT8>(sum + frame[i]);
  }
  frame[length] = static_cast<UINT8>(-sum);
  IoWrite8(kBtControlPort, BT_CLR_WR_PTR);
  IoWriteString8(kBtBufferPort, frame, UINTN{length} + 1);
  IoWrite8(kBtControlPort, BT_H2B_ATN);
}

BT_RESPONSE ReceiveBtResponse(UINT8 opcode, UINT8 expectedLength, BtAnswer& answer) {
  TakeAnswer();
  const BT_RESPONSE response = ReadFrame(opcode, expectedLength, answer);
  GiveBack();
  return response;
}

void DropBtResponse() {
  TakeAnswer();
  GiveBack();
}

}  // namespace bds
