#include "sim/firmware/clock.h"

namespace sim {

void Clock::MoveTo(Ticks time) {
  if (time > now_) {
    now_ = time;
  }
  if (now_ > limit_ && onLimit_) {
    auto onLimit = std::move(onLimit_);
    onLimit_ = nullptr;
    onLimit();
  }
}

void Clock::Advance(Ticks duration) {
  const Ticks target = now_ + duration;
  Ticks due = 0;
  while (source_ != nullptr && source_->NextDue(due) && due <= target) {
    MoveTo(due);
    source_->FireNext();
  }
  MoveTo(target);
}

bool Clock::AdvanceToNextTimer() {
  Ticks due = 0;
  if (source_ == nullptr || !source_->NextDue(due)) {
    return false;
  }
  MoveTo(due);
  source_->FireNext();
  return true;
}

std::uint32_t Clock::PmTimer() const {
  // 3.579545 MHz against 10 MHz: exact in integers, and free of overflow for the hours a boot may take.
  return static_cast<std::uint32_t>(now_ / 10'000'000 * 3'579'545 + now_ % 10'000'000 * 3'579'545 / 10'000'000) &
         0xFFFFFF;
}

void Clock::SetLimit(Ticks limit, std::function<void()> onLimit) {
  limit_ = limit;
  onLimit_ = std::move(onLimit);
}

}  // namespace sim
