#include "bmc/bt_owed_answers.h"

#include "bmc/bt_exchange.h"
#include "bmc/bt_registers.h"
#include "bmc/state.h"
#include "platform/io_ports.h"

namespace bds {
namespace {

// With a handle that nobody has, none of these does anything, and the BMC says so. The allowance ends before all of
// them are owed.
constexpr UINT8 kProbes[] = {BT_CLOSE_FILE, BT_CLOSE_VARIABLE_FILE, BT_READ_PIECE};
constexpr UINT8 kNoProbe = 0;
constexpr UINT8 kProbeLength = 4;  // length, opcode, handle
constexpr UINTN kMaxAnswers = 8;   // dropped by one attempt; more than requests can be owed
constexpr UINT32 kOpcodes = 32;    // all are smaller

bool IsOwed(UINT8 opcode) { return opcode < kOpcodes && (gBmc.OwedAnswers >> opcode & 1) != 0; }

// A read asks for the lock, which only some operations hold.
bool MayBeSent(UINT8 opcode) { return opcode != BT_READ_PIECE || (IoRead8(kBtInterruptMaskPort) & BT_FILE_LOCK) != 0; }

UINT8 ChooseProbe() {
  for (const UINT8 opcode : kProbes) {
    if (!IsOwed(opcode) && MayBeSent(opcode)) {
      return opcode;
    }
  }
  return kNoProbe;
}

void SendProbe(UINT8 opcode, UINT16 ownHandle) {
  const UINT16 handle = static_cast<UINT16>(~ownHandle);
  const UINT8 arguments[] = {static_cast<UINT8>(handle & 0xFF), static_cast<UINT8>(handle >> 8)};
  SendBtRequest(kProbeLength, opcode, arguments);
  OweBtAnswer(opcode);
}

// Drops answers until the probe's own.
bool AwaitProbe(UINT8 probe, BtWaiting& waiting) {
  UINT32 polls = kBtAnswerPolls;
  for (UINTN answers = 0; answers < kMaxAnswers && WaitForAnswer(polls, waiting); ++answers) {
    BtAnswer answer;
    if (ReceiveBtResponse(0, 0, answer) != BT_RESPONSE::Valid || !IsOwed(answer.Opcode)) {
      return false;
    }
    if (answer.Opcode == probe) {
      return true;
    }
  }
  return false;
}

}  // namespace

void OweBtAnswer(UINT8 opcode) { gBmc.OwedAnswers |= UINT32{1} << (opcode % kOpcodes); }

bool BtAnswersAreOwed() { return gBmc.OwedAnswers != 0; }

bool CatchUpWithBmc(UINT16 ownHandle, BtWaiting& waiting) {
  // Each probe is owed when it fails, so that this ends.
  for (UINT8 probe = ChooseProbe(); probe != kNoProbe; probe = ChooseProbe()) {
    if (gBmc.SilentWait + waiting.SinceAnswer >= kBtPatience || !WaitForFreeInterface(waiting)) {
      return false;
    }
    if (AnswerIsThere()) {
      DropBtResponse();
    }
    SendProbe(probe, ownHandle);
    if (AwaitProbe(probe, waiting)) {
      gBmc.OwedAnswers = 0;
      gBmc.SilentWait = 0;
      waiting.SinceAnswer = 0;
      return true;
    }
  }
  return false;
}

}  // namespace bds
