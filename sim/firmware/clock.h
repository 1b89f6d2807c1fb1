// The one clock of the simulated server. Nothing sleeps: whoever would wait moves this clock, so a boot with many
// seconds of waiting takes milliseconds and always the same number of virtual ones.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

namespace sim {

// Virtual time in units of 100 ns, the unit of timer events (UEFI 2.10, 7.1).
using Ticks = std::uint64_t;
inline constexpr Ticks kMicrosecond = 10;
inline constexpr Ticks kMillisecond = 1000 * kMicrosecond;
inline constexpr Ticks kSecond = 1000 * kMillisecond;

// What a polling loop costs per turn, so that a loop that only reads a register or checks an event sees time pass.
inline constexpr Ticks kPortAccessTime = kMicrosecond;
inline constexpr Ticks kPollTime = kMicrosecond;
inline constexpr Ticks kCounterReadTime = 1;
// The most that one of many reads in a row costs, of a timer or of a keyboard without a key.
inline constexpr Ticks kMaxTimerReadTime = 100 * kMicrosecond;
inline constexpr Ticks kMaxKeyPollTime = 10 * kMillisecond;

// What time passes for: a stall, register accesses (polling), the wait for an event or timer, or a device that takes
// its time to answer a call.
enum class Passing { Device, Stall, Port, Event };
using TimesPassed = std::array<Ticks, 4>;  // by Passing

class Clock {
 public:
  Ticks Now() const { return now_; }
  // The moment `duration` from now; the end of time when it lies beyond.
  Ticks After(Ticks duration) const { return duration > ~Ticks{0} - now_ ? ~Ticks{0} : now_ + duration; }

  // Moves time forward by `duration`; timers that fall due on the way fire in order, each at its own time.
  void Advance(Ticks duration, Passing passing = Passing::Device);
  // Where the time went since power-on; adds up to Now().
  const TimesPassed& Passed() const { return passed_; }

  // Moves to the moment at which the next timer is due and fires it; false, and no move, when none is armed.
  bool AdvanceToNextTimer();

  // Fires what fell due while timers were held back (at TPL_HIGH_LEVEL the timer interrupt is masked).
  void FireDue() { Advance(0); }

  // The ACPI PM timer: 3.579545 MHz, 24 bits, wraps every 4.69 s.
  std::uint32_t PmTimer() const;
  // A read that a port access has paid kPortAccessTime for. Who reads the timer again and again with nothing between
  // the reads waits: each further read of the row takes twice as long, up to kMaxTimerReadTime, so that an image, whose
  // port accesses are traps, does not wait for real. EndRows is for whatever happens between two reads.
  std::uint32_t ReadPmTimer();
  void EndRows() { timerReadTime_ = counterReadTime_ = keyPollTime_ = keyRowStart_ = 0; }
  // The time-stamp counter: 2 GHz, counted from power-on. Reading it takes kCounterReadTime, so that a loop on it ends;
  // further reads of a row take longer, as with the PM timer.
  std::uint64_t ReadTimeStampCounter();
  // A key was asked for and there was none. The first of a row is free, further ones take longer, up to
  // kMaxKeyPollTime; reads of the time between them, as a menu's countdown makes them, belong to the row.
  void PollKeys();
  // How long nothing but keys and the time has been asked for.
  Ticks KeyRow() const { return keyPollTime_ == 0 ? 0 : now_ - keyRowStart_; }
  std::uint64_t TimeStampCounter() const { return now_ * 200; }

  // What ends a boot that waits or works without end: called, once per crossing, when `ticks` from now are over.
  void SetLimit(Ticks ticks, std::function<void()> onLimit);
  // The same for steps, the service calls and the like that may take no virtual time.
  void SetStepLimit(std::uint64_t steps, std::function<void()> onLimit);
  void Step() {
    EndRows();
    if (stepsLeft_ == 0) {
      EndSteps();
      return;
    }
    --stepsLeft_;
  }

  // The timer source (the event manager): when the next timer is due, and the order to fire it.
  struct TimerSource {
    virtual ~TimerSource() = default;
    // False when no timer is armed, or when timers are masked now.
    virtual bool NextDue(Ticks& due) const = 0;
    // Fires exactly one timer, the one that NextDue named.
    virtual void FireNext() = 0;
  };
  void SetTimerSource(TimerSource* source) { source_ = source; }

 private:
  void MoveTo(Ticks time, Passing passing);
  void EndSteps();

  Ticks now_ = 0;
  TimesPassed passed_{};
  Ticks limit_ = ~Ticks{0};
  std::function<void()> onLimit_;
  // What the last read of a row took; 0 before its first.
  Ticks timerReadTime_ = 0;
  Ticks counterReadTime_ = 0;
  Ticks keyPollTime_ = 0;
  Ticks keyRowStart_ = 0;
  std::uint64_t stepsLeft_ = ~std::uint64_t{0};
  std::function<void()> onStepLimit_;
  TimerSource* source_ = nullptr;
};

}  // namespace sim
