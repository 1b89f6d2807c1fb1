// Events, timers, event groups and task priority (UEFI 2.10, 7.1). Notifications wait until the priority falls below
// theirs; those of higher priority run first, equal ones in the order they were signalled.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/boot_services.h"
#include "sim/firmware/clock.h"

namespace sim {

class Counters;
class Machine;

class EventManager final : public Clock::TimerSource {
 public:
  EventManager(Machine& machine, Clock& clock, Counters& counters);
  ~EventManager() override;
  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;

  EFI_TPL CurrentTpl() const { return tpl_; }
  EFI_TPL Raise(EFI_TPL tpl);
  void Restore(EFI_TPL tpl);

  // group may be null.
  EFI_STATUS Create(UINT32 type, EFI_TPL notifyTpl, EFI_EVENT_NOTIFY notify, void* context, const EFI_GUID* group,
                    EFI_EVENT* event);
  EFI_STATUS SetTimer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 time);
  EFI_STATUS Wait(UINTN count, EFI_EVENT* events, UINTN* index);
  EFI_STATUS Signal(EFI_EVENT event);
  EFI_STATUS Close(EFI_EVENT event);
  EFI_STATUS Check(EFI_EVENT event);
  // Signals every event of the group, as signalling one of its members would.
  void SignalGroup(const EFI_GUID& group);
  bool Exists(EFI_EVENT event) const { return events_.contains(event); }
  std::size_t Count() const { return events_.size(); }
  // The notification contexts of all events: memory that events keep alive.
  std::vector<const void*> Contexts() const;

  bool NextDue(Ticks& due) const override;
  void FireNext() override;

 private:
  struct Event;
  Event* Find(EFI_EVENT event) const;
  void SignalOne(Event& event);
  void Queue(Event& event);
  void RunPending();
  // To be called when a timer was set, fired or closed.
  void FindNextTimer();

  Machine& machine_;
  Clock& clock_;
  Counters& counters_;
  EFI_TPL tpl_ = TPL_APPLICATION;
  std::uint64_t sequence_ = 0;
  std::unordered_map<EFI_EVENT, std::unique_ptr<Event>> events_;
  std::list<Event*> order_;     // creation order: groups are signalled in it
  Event* nextTimer_ = nullptr;  // of the armed timers the one that is due first; null when none is armed
  std::list<Event*> pending_;   // highest priority first
};

}  // namespace sim
