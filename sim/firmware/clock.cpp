#include "sim/firmware/clock.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

// The function is out of the way while it runs: it may not come back, or may set the next limit.
void CallOnce(std::function<void()>& onLimit) {
  if (onLimit) {
    std::exchange(onLimit, nullptr)();
  }
}

}  // namespace

void Clock::MoveTo(Ticks time, Passing passing) {
  if (time > now_) {
    passed_[static_cast<std::size_t>(passing)] += time - now_;
    now_ = time;
  }
  if (now_ > limit_) {
    CallOnce(onLimit_);
  }
}

void Clock::Advance(Ticks duration, Passing passing) {
  const Ticks target = After(duration);
  Ticks due = 0;
  while (source_ != nullptr && source_->NextDue(due) && due <= target) {
    MoveTo(due, passing);
    source_->FireNext();
  }
  MoveTo(target, passing);
}

bool Clock::AdvanceToNextTimer() {
  Ticks due = 0;
  if (source_ == nullptr || !source_->NextDue(due)) {
    return false;
  }
  MoveTo(due, Passing::Event);
  source_->FireNext();
  return true;
}

std::uint32_t Clock::PmTimer() const {
  // 3.579545 MHz against 10 MHz: exact in integers, and free of overflow for the hours a boot may take.
  return static_cast<std::uint32_t>(now_ / 10'000'000 * 3'579'545 + now_ % 10'000'000 * 3'579'545 / 10'000'000) &
         0xFFFFFF;
}

std::uint32_t Clock::ReadPmTimer() {
  const Ticks readTime = timerReadTime_ == 0 ? kPortAccessTime : std::min(2 * timerReadTime_, kMaxTimerReadTime);
  timerReadTime_ = readTime;
  counterReadTime_ = 0;
  Advance(readTime - kPortAccessTime, Passing::Port);  // what fires on the way may end the row
  return PmTimer();
}

std::uint64_t Clock::ReadTimeStampCounter() {
  const Ticks readTime = counterReadTime_ == 0 ? kCounterReadTime : std::min(2 * counterReadTime_, kMaxTimerReadTime);
  counterReadTime_ = readTime;
  timerReadTime_ = 0;
  Advance(readTime, Passing::Port);
  return TimeStampCounter();
}

void Clock::PollKeys() {
  const bool first = keyPollTime_ == 0;
  const Ticks pollTime = first ? 0 : keyPollTime_;
  keyRowStart_ = first ? now_ : keyRowStart_;
  keyPollTime_ = first ? kPollTime : std::min(2 * keyPollTime_, kMaxKeyPollTime);
  Advance(pollTime, Passing::Event);  // what fires on the way ends the row
}

void Clock::SetLimit(Ticks ticks, std::function<void()> onLimit) {
  limit_ = After(ticks);
  onLimit_ = std::move(onLimit);
}

void Clock::SetStepLimit(std::uint64_t steps, std::function<void()> onLimit) {
  stepsLeft_ = steps;
  onStepLimit_ = std::move(onLimit);
}

void Clock::EndSteps() { CallOnce(onStepLimit_); }

}  // namespace sim
