// Events, timers and task priority (UEFI 2.10, 7.1). Notifications wait in one queue per priority and run when the
// priority falls below theirs: on RestoreTPL, or at once when it is low enough already.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/boot_services.h"
#include "sim/firmware/clock.h"

namespace sim {

class Machine;

class EventManager : public Clock::TimerSource {
 public:
  // The timer tick of the simulated firmware: what a relative trigger time of 0 waits for.
  static constexpr Ticks kTick = 10 * kMillisecond;

  explicit EventManager(Machine& machine);
  ~EventManager() override;

  EFI_STATUS Create(UINT32 type, EFI_TPL notifyTpl, EFI_EVENT_NOTIFY notify, const VOID* context, const EFI_GUID* group,
                    EFI_EVENT* event);
  EFI_STATUS Close(EFI_EVENT event);
  EFI_STATUS Signal(EFI_EVENT event);
  EFI_STATUS Check(EFI_EVENT event);
  EFI_STATUS SetTimer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 triggerTime);
  EFI_STATUS Wait(UINTN count, EFI_EVENT* events, UINTN* index);

  // Signals every event of the group, all of them before the first notification runs.
  void SignalGroup(const EFI_GUID& group);

  EFI_TPL Raise(EFI_TPL newTpl);
  void Restore(EFI_TPL oldTpl);
  EFI_TPL CurrentTpl() const { return tpl_; }

  bool IsEvent(EFI_EVENT event) const;
  // Whether the event is NOTIFY_SIGNAL, as RegisterProtocolNotify's must be... any notify type will do there.
  std::size_t LiveEvents() const { return events_.size(); }
  // The contexts of all live events: roots of the leak scan.
  std::vector<const VOID*> Contexts() const;

  // Events of firmware drivers written in C++. The callable lives as long as the event.
  EFI_EVENT CreateCallback(EFI_TPL tpl, std::function<void()> callback, const EFI_GUID* group = nullptr,
                           UINT32 type = EVT_NOTIFY_SIGNAL);

  // Asked when WaitForEvent finds nothing signalled and no timer armed: true when something may have changed (a key
  // came from the terminal). Without it, or when it answers false, the boot ends as one that waits forever.
  void SetIdleHandler(std::function<bool()> handler) { idleHandler_ = std::move(handler); }

  // Called by whoever must know that an event is gone (protocol notifications).
  void SetCloseHandler(std::function<void(EFI_EVENT)> handler) { closeHandler_ = std::move(handler); }

  bool NextDue(Ticks& due) const override;
  void FireNext() override;

 private:
  struct Event;
  struct TimerKey {
    Ticks due;
    std::uint64_t order;
    friend auto operator<=>(const TimerKey&, const TimerKey&) = default;
  };

  Event* Find(EFI_EVENT event) const;
  Event* FindOrComplain(EFI_EVENT event, const char* service) const;
  void SignalOne(Event& event);
  void Queue(Event& event);
  void CancelTimer(Event& event);
  void Arm(Event& event, Ticks due);
  void Dispatch();
  void RunNotification(Event& event);
  bool IdleOnce();

  Machine& machine_;
  std::map<std::size_t, std::unique_ptr<Event>> events_;
  std::array<std::deque<Event*>, TPL_HIGH_LEVEL + 1> pending_;
  std::map<TimerKey, Event*> timers_;
  std::uint64_t timerOrder_ = 0;
  EFI_TPL tpl_ = TPL_APPLICATION;
  std::function<bool()> idleHandler_;
  std::function<void(EFI_EVENT)> closeHandler_;
};

}  // namespace sim
