// The block-transfer registers' state machine.
#include "sim/bmc/bt_interface.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "sim/bmc/traffic_text.h"

namespace sim {
namespace {

constexpr std::uint8_t kClearWritePointer = 0x01;
constexpr std::uint8_t kClearReadPointer = 0x02;
constexpr std::uint8_t kH2bAttention = 0x04;
constexpr std::uint8_t kB2hAttention = 0x08;
constexpr std::uint8_t kHostBusy = 0x40;
constexpr std::uint8_t kBmcBusy = 0x80;

constexpr std::uint8_t kReadPiece = 7;
constexpr std::uint8_t kWritePiece = 8;
constexpr std::uint8_t kRename = 16;

// What the host waits at most: 1 s in steps of 1 ms for a free interface, 5 s for an answer.
constexpr std::uint64_t kBusyPolls = 1000;
constexpr Ticks kAnswerPatience = 5 * kSecond;

bool IsOpen(std::uint8_t opcode) { return opcode == 6 || opcode == 12; }
bool NeedsLock(std::uint8_t opcode) {
  return IsOpen(opcode) || opcode == kReadPiece || opcode == kWritePiece || opcode == kRename;
}

}  // namespace

BtInterface::BtInterface(FileServer& server, Clock& clock, Counters& counters, BmcHooks hooks)
    : server_(server), clock_(clock), counters_(counters), hooks_(std::move(hooks)) {}

void BtInterface::Attach(PortBus& bus) {
  bus.Claim(
      kControl, kInterruptMask,
      [this](std::uint16_t port, unsigned width) -> std::uint32_t {
        if (width != 1) {
          Complain(fmt::format("read of {} bytes from a register of one", width));
        }
        return Read(port);
      },
      [this](std::uint16_t port, std::uint32_t value, unsigned width) {
        if (width != 1) {
          Complain(fmt::format("write of {} bytes to a register of one", width));
        }
        Write(port, static_cast<std::uint8_t>(value));
      });
}

void BtInterface::Reset() {
  faults_.clear();
  h2bAttention_ = b2hAttention_ = hostBusy_ = writePointerCleared_ = stuck_ = false;
  interruptMask_ = 0;
  request_.clear();
  response_.clear();
  pending_.reset();
  damaged_.reset();
  awaitingSince_.reset();
  notes_.clear();
}

void BtInterface::Complain(std::string text) { counters_.Complain("BT interface: " + std::move(text)); }

bool BtInterface::Befalls(BmcFault::Kind kind, std::uint64_t exchange, std::uint64_t* value) {
  for (BmcFault& fault : faults_) {
    if (fault.kind != kind || exchange < fault.first || fault.count == 0) {
      continue;
    }
    if (fault.count != BmcFault::kAlways) {
      --fault.count;
    }
    if (value != nullptr) {
      *value = fault.value;
    }
    Note(BmcFault::Name(kind));
    if (hooks_.onFault) {
      hooks_.onFault(fault.words, exchange);
    }
    return true;
  }
  return false;
}

void BtInterface::Note(std::string_view text) { notes_ += fmt::format("{}{}", notes_.empty() ? "" : ", ", text); }

void BtInterface::TellExchange() {
  const Exchange& last = trace_.back();
  const std::string answer = last.response.empty() ? "no answer" : TrafficBytes(last.response);
  Tell(exchangeCount_, fmt::format("> {} < {}", TrafficBytes(last.request), answer));
}

void BtInterface::Tell(std::uint64_t exchange, std::string_view what) {
  if (hooks_.onTraffic) {
    const std::string notes = notes_.empty() ? "" : fmt::format(" [{}]", notes_);
    hooks_.onTraffic(fmt::format("exchange {} {}{}", exchange, what, notes));
  }
  notes_.clear();
}

std::uint8_t BtInterface::Read(std::uint16_t port) {
  Progress();
  switch (port) {
    case kControl:
      return ReadControl();
    case kBuffer:
      return ReadBuffer();
    default:
      return ReadInterruptMask();
  }
}

void BtInterface::Write(std::uint16_t port, std::uint8_t value) {
  Progress();
  if (port == kControl) {
    WriteControl(value);
    return;
  }
  if (port == kInterruptMask) {
    interruptMask_ = value;
    return;
  }
  if (h2bAttention_) {
    Complain("the buffer was written while the BMC has the request");
    return;
  }
  if (!writePointerCleared_) {
    Complain("the buffer was written without CLR_WR_PTR");
  }
  if (request_.size() < kMaxRequest) {
    request_.push_back(value);
  }
}

void BtInterface::WriteControl(std::uint8_t value) {
  if ((value & kClearWritePointer) != 0) {
    if (h2bAttention_) {
      Complain("CLR_WR_PTR while the BMC has the request");
      return;
    }
    request_.clear();
    writePointerCleared_ = true;
  }
  if ((value & kClearReadPointer) != 0) {
    readPosition_ = 0;
  }
  if ((value & kB2hAttention) != 0) {
    if (!b2hAttention_) {
      Complain("B2H_ATN cleared without a response");
    }
    b2hAttention_ = false;
    awaitingSince_.reset();
  }
  if ((value & kHostBusy) != 0) {
    hostBusy_ = !hostBusy_;
  }
  if ((value & kH2bAttention) != 0) {
    HandOver();
  }
}

void BtInterface::HandOver() {
  if (h2bAttention_) {
    Complain("H2B_ATN set while a request waits");
    return;
  }
  if (hostBusy_) {
    Complain("a request was handed over while the host reads a response");
  }
  writePointerCleared_ = false;
  h2bAttention_ = true;
  takeAt_ = std::max(clock_.Now(), pending_ ? pending_->due : 0) + kTakeTime;
  awaitingSince_ = clock_.Now();
  ++exchangeCount_;
  counters_.Add("bmc.exchanges");
  counters_.Add("bmc.bytes", request_.size());
  if (damaged_ && damaged_->request != request_) {
    damaged_.reset();
  }
  if (damaged_) {
    counters_.Add("bmc.retries");
    Note("sent again");
  }
}

// Lets the BMC do what it would have done by now.
void BtInterface::Progress() {
  if (h2bAttention_ && !pending_ && clock_.Now() >= takeAt_) {
    TakeRequest();
  }
  if (pending_ && clock_.Now() >= pending_->due && !b2hAttention_ && !hostBusy_) {
    response_ = std::move(pending_->response);
    responseLies_ = pending_->lying;
    pending_.reset();
    b2hAttention_ = true;
  }
}

bool BtInterface::RequestIsSound() {
  if (!IsWellFormedFrame(request_)) {
    Complain(fmt::format("a damaged request frame: {:02x}", fmt::join(request_, " ")));
    return false;
  }
  if (NeedsLock(request_[1]) && !LockTaken()) {
    Complain(fmt::format("opcode {} without the lock", request_[1]));
  }
  return true;
}

void BtInterface::TakeRequest() {
  h2bAttention_ = false;
  if (!RequestIsSound()) {
    return;
  }
  bool changed = false;
  Pending answer = MakeAnswer(changed);
  if (trace_.size() == kMaxTrace) {
    trace_.erase(trace_.begin());
  }
  trace_.push_back({clock_.Now(), request_, answer.response});
  if (!answer.response.empty()) {
    pending_ = std::move(answer);
  }
  const bool powerLost = Befalls(BmcFault::Kind::PowerLoss, exchangeCount_);
  TellExchange();
  if (changed && hooks_.onWrite) {
    hooks_.onWrite("bmc");
  }
  if (hooks_.onWrite) {
    hooks_.onWrite("bmc-exchange");
  }
  if (powerLost && hooks_.onPowerLoss) {
    hooks_.onPowerLoss();
  }
}

BtInterface::Pending BtInterface::MakeAnswer(bool& changed) {
  using Kind = BmcFault::Kind;
  Pending answer{takeAt_ + kAnswerTime, {}, false};
  if (damaged_) {
    answer.response = std::move(damaged_->response);
    damaged_.reset();
    Corrupt(answer);
    return answer;
  }
  const std::uint8_t opcode = request_[1];
  Refusals refuse;
  refuse.open = IsOpen(opcode) && Befalls(Kind::RefuseOpen, exchangeCount_);
  refuse.read = opcode == kReadPiece && Befalls(Kind::RefuseRead, exchangeCount_);
  refuse.write = opcode == kWritePiece && Befalls(Kind::RefuseWrite, exchangeCount_);
  refuse.rename = opcode == kRename && Befalls(Kind::RefuseRename, exchangeCount_);
  answer.response = server_.Answer(request_, refuse, changed);
  Corrupt(answer);
  return answer;
}

void BtInterface::Corrupt(Pending& answer) {
  using Kind = BmcFault::Kind;
  Frame& frame = answer.response;
  std::uint64_t value = 0;
  if (request_[1] != kReadPiece && Befalls(Kind::WrongLength, exchangeCount_)) {
    const std::uint8_t more[] = {0, 0, 0, 0, 0};
    frame = MakeResponse(request_[1], more);
  }
  if (Befalls(Kind::WrongEcho, exchangeCount_)) {
    frame = MakeResponse(static_cast<std::uint8_t>(frame[1] ^ 0x20), std::span(frame).subspan(2, frame.size() - 3));
  }
  if (Befalls(Kind::BadChecksum, exchangeCount_)) {
    damaged_ = Exchange{clock_.Now(), request_, frame};
    ++frame.back();
  }
  if (Befalls(Kind::LyingLength, exchangeCount_, &value)) {
    frame[0] = static_cast<std::uint8_t>(value);
    answer.lying = true;
  }
  if (Befalls(Kind::Late, exchangeCount_, &value)) {
    answer.due += value * kMillisecond;
  }
  if (Befalls(Kind::NoAnswer, exchangeCount_)) {
    frame.clear();
  }
}

std::uint8_t BtInterface::ReadControl() {
  const bool looksStuck = LooksStuck();
  lastControlRead_ = clock_.Now();
  WatchTimeout();
  const bool working = pending_.has_value() && !b2hAttention_;
  return static_cast<std::uint8_t>((h2bAttention_ || looksStuck ? kH2bAttention : 0) |
                                   (b2hAttention_ ? kB2hAttention : 0) | (hostBusy_ ? kHostBusy : 0) |
                                   (working ? kBmcBusy : 0));
}

// A host that waits for a free interface polls every millisecond; a poll at another distance begins a new attempt.
bool BtInterface::LooksStuck() {
  if (h2bAttention_ || awaitingSince_) {
    return false;
  }
  const Ticks gap = clock_.Now() - lastControlRead_;
  const bool sameAttempt = stuck_ && gap > kMillisecond / 2 && gap < 10 * kMillisecond;
  if (!sameAttempt) {
    stuck_ = Befalls(BmcFault::Kind::H2bStuck, exchangeCount_ + 1);
    stuckPolls_ = 0;
  }
  if (stuck_ && ++stuckPolls_ == kBusyPolls) {
    counters_.Add("bmc.timeouts");
    Tell(exchangeCount_ + 1, "timeout: the interface stays busy");
  }
  return stuck_;
}

void BtInterface::WatchTimeout() {
  if (awaitingSince_ && !b2hAttention_ && clock_.Now() - *awaitingSince_ >= kAnswerPatience) {
    awaitingSince_.reset();
    counters_.Add("bmc.timeouts");
    Tell(exchangeCount_, "timeout: no answer");
  }
}

std::uint8_t BtInterface::ReadBuffer() {
  if (!hostBusy_) {
    Complain("the buffer was read without H_BUSY");
  }
  if (readPosition_ >= response_.size()) {
    if (!responseLies_) {
      Complain("the buffer was read past the response");
    }
    return 0xFF;
  }
  counters_.Add("bmc.bytes");
  return response_[readPosition_++];
}

std::uint8_t BtInterface::ReadInterruptMask() {
  if (!LockTaken() && Befalls(BmcFault::Kind::LockHeld, exchangeCount_ + 1)) {
    Tell(exchangeCount_ + 1, "the lock is taken");
    return interruptMask_ | kLock;
  }
  return interruptMask_;
}

}  // namespace sim
