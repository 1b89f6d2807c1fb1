// The register handshake and the frames of one file transfer exchange.
#include "bmc/bt_exchange.h"

#include "bmc/bt_registers.h"
#include "bmc/pm_timer.h"
#include "bmc/state.h"
#include "platform/io_ports.h"
#include "support/memory.h"

namespace bds {
namespace {

constexpr UINT32 kPollInterval = 1000;     // microseconds
constexpr UINT32 kBusyPolls = 1000;        // 1 s until the BMC has taken the request before
constexpr UINT32 kAnswerPolls = 5 * 1000;  // 5 s until it answers
constexpr UINT32 kRetryPause = 1'000'000;  // microseconds
constexpr UINT32 kMaxBadChecksums = 100;   // per exchange
constexpr UINT8 kFrameOverhead = 2;        // length and opcode bytes
constexpr UINT8 kMaxRefusalData = 1;       // a status byte; a longer answer of a wrong length says nothing

// Stalls and remembers for how long, so that what a failed exchange cost is known.
struct Waiting {
  UINT64 Microseconds = 0;
  void Stall(UINT32 microseconds) {
    PmTimerStall(microseconds);
    Microseconds += microseconds;
  }
};

// Polls until the control bits are all set (or all clear); false after that many pauses.
bool WaitForControl(UINT8 bits, bool set, UINT32 polls, Waiting& waiting) {
  while (((IoRead8(kBtControlPort) & bits) != 0) != set) {
    if (polls == 0) {
      return false;
    }
    --polls;
    waiting.Stall(kPollInterval);
  }
  return true;
}

void SendRequest(const BT_FILE_CONTEXT& context, UINT8 length) {
  UINT8 frame[kFrameOverhead + kBtArgumentCapacity + 1] = {length, context.Opcode};
  CopyMemory(frame + kFrameOverhead, context.RequestArgs, length - kFrameOverhead);
  UINT8 sum = 0;
  for (UINT8 i = 0; i < length; ++i) {
    sum = static_cast<UINT8>(sum + frame[i]);
  }
  frame[length] = static_cast<UINT8>(-sum);
  IoWrite8(kBtControlPort, BT_CLR_WR_PTR);
  IoWriteString8(kBtBufferPort, frame, UINTN{length} + 1);
  IoWrite8(kBtControlPort, BT_H2B_ATN);
}

enum class Response { Valid, Refused, Garbled, BadChecksum };

// Reads the response frame's bytes. Nothing of the context changes but ResponseData, and that by a valid one only.
Response ReadResponse(BT_FILE_CONTEXT& context, UINT8 expectedLength, UINT8& dataLength) {
  const UINT8 length = IoRead8(kBtBufferPort);
  if (expectedLength != 0 && length != expectedLength) {
    const bool no = length >= kFrameOverhead && length <= kFrameOverhead + kMaxRefusalData;
    return no && !gBmc.AnswerOwed ? Response::Refused : Response::Garbled;
  }
  if (length < kFrameOverhead || length - kFrameOverhead > static_cast<int>(kBtResponseCapacity)) {
    return Response::Garbled;
  }
  const UINT8 echo = IoRead8(kBtBufferPort);
  if (echo != context.Opcode) {
    return Response::Garbled;
  }
  dataLength = static_cast<UINT8>(length - kFrameOverhead);
  UINT8 data[kBtResponseCapacity];
  UINT8 sum = static_cast<UINT8>(length + echo);
  for (UINT8 i = 0; i < dataLength; ++i) {
    data[i] = IoRead8(kBtBufferPort);
    sum = static_cast<UINT8>(sum + data[i]);
  }
  sum = static_cast<UINT8>(sum + IoRead8(kBtBufferPort));
  if (sum != 0) {
    return Response::BadChecksum;
  }
  CopyMemory(context.ResponseData, data, dataLength);
  return Response::Valid;
}

Response ReceiveResponse(BT_FILE_CONTEXT& context, UINT8 expectedLength, UINT8& dataLength) {
  IoWrite8(kBtControlPort, BT_H_BUSY);
  IoWrite8(kBtControlPort, BT_CLR_RD_PTR | BT_B2H_ATN);
  const Response response = ReadResponse(context, expectedLength, dataLength);
  IoWrite8(kBtControlPort, BT_H_BUSY);
  return response;
}

// Throws away the late answer to a request given up before: read as the answer to the next one it would be wrong, and
// every later answer would be the one before it.
void DiscardLateAnswer() {
  if (gBmc.AnswerOwed && (IoRead8(kBtControlPort) & BT_B2H_ATN) != 0) {
    IoWrite8(kBtControlPort, BT_H_BUSY);
    IoWrite8(kBtControlPort, BT_CLR_RD_PTR | BT_B2H_ATN);
    IoWrite8(kBtControlPort, BT_H_BUSY);
    gBmc.AnswerOwed = FALSE;
  }
}

BT_END Exchange(BT_FILE_CONTEXT& context, UINT8 length, UINT8 expectedLength, Waiting& waiting) {
  if (!WaitForControl(BT_H2B_ATN, false, kBusyPolls, waiting)) {
    ++context.TimeoutCount;
    return BT_END::Silent;
  }
  DiscardLateAnswer();
  for (UINT32 badChecksums = 0; badChecksums < kMaxBadChecksums; ++badChecksums) {
    SendRequest(context, length);
    if (!WaitForControl(BT_B2H_ATN, true, kAnswerPolls, waiting)) {
      gBmc.AnswerOwed = TRUE;
      ++context.TimeoutCount;
      return BT_END::Silent;
    }
    UINT8 dataLength = 0;
    const Response response = ReceiveResponse(context, expectedLength, dataLength);
    if (response == Response::Refused || response == Response::Garbled) {
      return response == Response::Refused ? BT_END::Refused : BT_END::Garbled;
    }
    if (response == Response::Valid) {
      ++context.SuccessCount;
      if (expectedLength == 0) {
        context.DataOffset = kFrameOverhead;
        context.ResponseLength = dataLength;
      }
      return BT_END::Valid;
    }
    waiting.Stall(kRetryPause);
    ++context.RetryCount;
  }
  return BT_END::Silent;
}

}  // namespace

bool BtAllowanceIsSpent() { return gBmc.FruitlessWait >= kBtPatience || gBmc.ExchangeWait >= kBtEndurance; }

UINT8 BtExchange(BT_FILE_CONTEXT& context, UINT8 length, UINT8 expectedLength) {
  if (length < kFrameOverhead || length > kFrameOverhead + kBtArgumentCapacity) {
    context.LastEnd = BT_END::None;
    return 1;
  }
  if (BtAllowanceIsSpent()) {
    ++context.TimeoutCount;
    context.LastEnd = BT_END::Silent;
    return 1;
  }
  Waiting waiting;
  context.LastEnd = Exchange(context, length, expectedLength, waiting);
  gBmc.ExchangeWait += waiting.Microseconds;
  if (context.LastEnd == BT_END::Valid) {
    return 0;
  }
  gBmc.FruitlessWait += waiting.Microseconds;
  return 1;
}

}  // namespace bds
