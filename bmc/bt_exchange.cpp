// One request and its response, tried, timed and accounted for.
#include "bmc/bt_exchange.h"

#include "bmc/bt_owed_answers.h"
#include "bmc/state.h"
#include "support/memory.h"

namespace bds {
namespace {

constexpr UINT32 kRetryPause = 1'000'000;  // microseconds
constexpr UINT32 kMaxBadChecksums = 100;   // per exchange

void TakeOver(BT_FILE_CONTEXT& context, const BtAnswer& answer, bool anyLength) {
  CopyMemory(context.ResponseData, answer.Data, answer.DataLength);
  ++context.SuccessCount;
  if (anyLength) {
    context.DataOffset = kBtFrameOverhead;
    context.ResponseLength = answer.DataLength;
  }
}

BT_END GiveUp(BT_FILE_CONTEXT& context) {
  ++context.TimeoutCount;
  return BT_END::Silent;
}

BT_END Exchange(BT_FILE_CONTEXT& context, UINT8 length, UINT8 expectedLength, BtWaiting& waiting) {
  const bool inStep = !BtAnswersAreOwed() || CatchUpWithBmc(context.Handle, waiting);
  if (!inStep || !WaitForFreeInterface(waiting)) {
    return GiveUp(context);
  }
  for (UINT32 badChecksums = 0; badChecksums < kMaxBadChecksums; ++badChecksums) {
    SendBtRequest(length, context.Opcode, context.RequestArgs);
    UINT32 polls = kBtAnswerPolls;
    if (!WaitForAnswer(polls, waiting)) {
      OweBtAnswer(context.Opcode);
      return GiveUp(context);
    }
    BtAnswer answer;
    switch (ReceiveBtResponse(context.Opcode, expectedLength, answer)) {
      case BT_RESPONSE::Valid:
        TakeOver(context, answer, expectedLength == 0);
        return BT_END::Valid;
      case BT_RESPONSE::Refused:
        return BT_END::Refused;
      case BT_RESPONSE::Garbled:
        OweBtAnswer(context.Opcode);  // it may have been another's, and the right one still comes
        return BT_END::Garbled;
      case BT_RESPONSE::BadChecksum:
        waiting.Stall(kRetryPause);
        ++context.RetryCount;
    }
  }
  return BT_END::Silent;
}

// A no is an answer: it shows that the BMC is alive, and what it cost is nobody's fault.
void Account(BT_END end, const BtWaiting& waiting) {
  gBmc.ExchangeWait += waiting.Microseconds;
  if (end == BT_END::Valid || end == BT_END::Refused) {
    gBmc.SilentWait = 0;
    return;
  }
  gBmc.SilentWait += waiting.SinceAnswer;
}

}  // namespace

bool BtAllowanceIsSpent() { return gBmc.SilentWait >= kBtPatience || gBmc.ExchangeWait >= kBtEndurance; }

UINT8 BtExchange(BT_FILE_CONTEXT& context, UINT8 length, UINT8 expectedLength) {
  if (length < kBtFrameOverhead || length > kBtFrameOverhead + kBtArgumentCapacity) {
    context.LastEnd = BT_END::None;
    return 1;
  }
  if (BtAllowanceIsSpent()) {
    context.LastEnd = GiveUp(context);
    return 1;
  }
  BtWaiting waiting;
  context.LastEnd = Exchange(context, length, expectedLength, waiting);
  Account(context.LastEnd, waiting);
  return context.LastEnd == BT_END::Valid ? 0 : 1;
}

}  // namespace bds
