#include "sim/firmware/event_manager.h"

#include <fmt/format.h>

#include <algorithm>

#include "sim/firmware/counters.h"
#include "sim/firmware/machine.h"

namespace sim {

struct EventManager::Event {
  EFI_EVENT token = nullptr;
  UINT32 type = 0;
  EFI_TPL notifyTpl = 0;
  EFI_EVENT_NOTIFY notify = nullptr;
  void* context = nullptr;
  std::optional<EFI_GUID> group;
  EFI_HANDLE owner = nullptr;
  bool signalled = false;
  bool queued = false;
  bool armed = false;
  Ticks due = 0;
  Ticks period = 0;
  std::uint64_t timerSequence = 0;
};

EventManager::EventManager(Machine& machine, Clock& clock, Counters& counters)
    : machine_(machine), clock_(clock), counters_(counters) {
  clock_.SetTimerSource(this);
}

EventManager::~EventManager() { clock_.SetTimerSource(nullptr); }

EventManager::Event* EventManager::Find(EFI_EVENT event) const {
  const auto found = events_.find(event);
  return found == events_.end() ? nullptr : found->second.get();
}

std::vector<const void*> EventManager::Contexts() const {
  std::vector<const void*> contexts;
  for (const Event* event : order_) {
    contexts.push_back(event->context);
  }
  return contexts;
}

EFI_TPL EventManager::Raise(EFI_TPL tpl) {
  const EFI_TPL old = tpl_;
  if (tpl < old || tpl > TPL_HIGH_LEVEL) {
    counters_.Complain(fmt::format("RaiseTPL to {} at priority {}", tpl, old));
    return old;
  }
  tpl_ = tpl;
  return old;
}

void EventManager::Restore(EFI_TPL tpl) {
  if (tpl > tpl_) {
    counters_.Complain(fmt::format("RestoreTPL to {} at priority {}", tpl, tpl_));
    return;
  }
  const bool timersWereMasked = tpl_ >= TPL_HIGH_LEVEL;
  tpl_ = tpl;
  if (timersWereMasked) {
    clock_.FireDue();
  }
  RunPending();
}

void EventManager::RunPending() {
  while (!pending_.empty() && pending_.front()->notifyTpl > tpl_) {
    Event* event = pending_.front();
    pending_.pop_front();
    event->queued = false;
    if ((event->type & EVT_NOTIFY_SIGNAL) != 0) {
      event->signalled = false;
    }
    const EFI_TPL old = tpl_;
    tpl_ = event->notifyTpl;
    {
      // The notification may close its own event: nothing of it is touched behind the call.
      const EFI_EVENT token = event->token;
      void* const context = event->context;
      const EFI_EVENT_NOTIFY notify = event->notify;
      const EFI_TPL level = tpl_;
      machine_.PushOwner(event->owner);
      notify(token, context);
      machine_.PopOwner();
      if (tpl_ != level) {
        counters_.Complain(fmt::format("a notification at priority {} came back at {}", level, tpl_));
      }
    }
    tpl_ = old;
  }
}

void EventManager::Queue(Event& event) {
  if (event.queued || event.notify == nullptr) {
    return;
  }
  event.queued = true;
  const auto place = std::find_if(pending_.begin(), pending_.end(),
                                  [&event](const Event* other) { return other->notifyTpl < event.notifyTpl; });
  pending_.insert(place, &event);
}

EFI_STATUS EventManager::Create(UINT32 type, EFI_TPL notifyTpl, EFI_EVENT_NOTIFY notify, void* context,
                                const EFI_GUID* group, EFI_EVENT* event) {
  if (event == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  std::optional<EFI_GUID> member = group == nullptr ? std::nullopt : std::optional(*group);
  if (type == EVT_SIGNAL_EXIT_BOOT_SERVICES) {
    if (group != nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    member = gEfiEventExitBootServicesGuid;
  }
  const bool virtualChange = type == EVT_SIGNAL_VIRTUAL_ADDRESS_CHANGE;
  const UINT32 plain = type & ~(EVT_TIMER | EVT_RUNTIME);
  const bool known = plain == 0 || plain == EVT_NOTIFY_WAIT || plain == EVT_NOTIFY_SIGNAL ||
                     type == EVT_SIGNAL_EXIT_BOOT_SERVICES || (virtualChange && group == nullptr);
  const bool notifies = (type & (EVT_NOTIFY_WAIT | EVT_NOTIFY_SIGNAL)) != 0;
  if (!known || (notifies && (notify == nullptr || notifyTpl <= TPL_APPLICATION || notifyTpl >= TPL_HIGH_LEVEL))) {
    return EFI_INVALID_PARAMETER;
  }
  if (machine_.Arena().Full()) {
    return EFI_OUT_OF_RESOURCES;
  }
  auto created = std::make_unique<Event>();
  created->token = machine_.Arena().Allocate();
  created->type = type;
  created->notifyTpl = notifyTpl;
  created->notify = notifies ? notify : nullptr;
  created->context = context;
  created->group = member;
  created->owner = machine_.CurrentOwner();
  *event = created->token;
  order_.push_back(created.get());
  events_.emplace(created->token, std::move(created));
  return EFI_SUCCESS;
}

EFI_STATUS EventManager::SetTimer(EFI_EVENT token, EFI_TIMER_DELAY type, UINT64 time) {
  Event* event = Find(token);
  if (event == nullptr || (event->type & EVT_TIMER) == 0 || type > TimerRelative) {
    return EFI_INVALID_PARAMETER;
  }
  event->armed = type != TimerCancel;
  // A period of 0 means every timer tick; 10 ms is the tick here.
  const Ticks step = time == 0 && type == TimerPeriodic ? 10 * kMillisecond : time;
  event->period = type == TimerPeriodic ? step : 0;
  event->due = clock_.After(step);
  event->timerSequence = ++sequence_;
  FindNextTimer();
  return EFI_SUCCESS;
}

bool EventManager::NextDue(Ticks& due) const {
  if (nextTimer_ == nullptr || tpl_ >= TPL_HIGH_LEVEL) {
    return false;
  }
  due = nextTimer_->due;
  return true;
}

void EventManager::FindNextTimer() {
  nextTimer_ = nullptr;
  for (Event* event : order_) {
    if (event->armed && (nextTimer_ == nullptr || event->due < nextTimer_->due ||
                         (event->due == nextTimer_->due && event->timerSequence < nextTimer_->timerSequence))) {
      nextTimer_ = event;
    }
  }
}

void EventManager::FireNext() {
  Event* const next = nextTimer_;
  if (next == nullptr) {
    return;
  }
  clock_.Step();
  next->armed = next->period != 0;
  next->due = next->period > ~next->due ? ~Ticks{0} : next->due + next->period;
  next->timerSequence = ++sequence_;
  FindNextTimer();
  static_cast<void>(Signal(next->token));
}

void EventManager::SignalOne(Event& event) {
  if (event.signalled) {
    return;
  }
  event.signalled = true;
  if ((event.type & EVT_NOTIFY_SIGNAL) != 0) {
    Queue(event);
  }
}

EFI_STATUS EventManager::Signal(EFI_EVENT token) {
  Event* event = Find(token);
  if (event == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  if (event->group && !event->signalled) {
    SignalGroup(*event->group);
    return EFI_SUCCESS;
  }
  SignalOne(*event);
  RunPending();
  return EFI_SUCCESS;
}

void EventManager::SignalGroup(const EFI_GUID& group) {
  for (Event* event : order_) {
    if (event->group && *event->group == group) {
      SignalOne(*event);
    }
  }
  RunPending();
}

EFI_STATUS EventManager::Close(EFI_EVENT token) {
  Event* event = Find(token);
  if (event == nullptr) {
    counters_.Complain("CloseEvent of something that is no event (closed twice?)");
    return EFI_INVALID_PARAMETER;
  }
  pending_.remove(event);
  order_.remove(event);
  if (event == nextTimer_) {
    FindNextTimer();
  }
  machine_.Handles().ForgetEvent(token);
  events_.erase(token);
  return EFI_SUCCESS;
}

EFI_STATUS EventManager::Check(EFI_EVENT token) {
  Event* event = Find(token);
  if (event == nullptr || (event->type & EVT_NOTIFY_SIGNAL) != 0) {
    return EFI_INVALID_PARAMETER;
  }
  if (!event->signalled && (event->type & EVT_NOTIFY_WAIT) != 0) {
    Queue(*event);
    RunPending();
    event = Find(token);
    if (event == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
  }
  if (!event->signalled) {
    clock_.Advance(kPollTime, Passing::Event);
    event = Find(token);
  }
  if (event == nullptr || !event->signalled) {
    return EFI_NOT_READY;
  }
  event->signalled = false;
  return EFI_SUCCESS;
}

EFI_STATUS EventManager::Wait(UINTN count, EFI_EVENT* events, UINTN* index) {
  if (count == 0 || events == nullptr || index == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  if (tpl_ != TPL_APPLICATION) {
    return EFI_UNSUPPORTED;
  }
  for (;;) {
    for (UINTN i = 0; i < count; ++i) {
      const EFI_STATUS status = Check(events[i]);
      if (status != EFI_NOT_READY) {
        *index = i;
        return status;
      }
    }
    clock_.Step();
    if (!clock_.AdvanceToNextTimer() && !machine_.Idle()) {
      machine_.EndBoot(BootEnd::WaitsForever, "WaitForEvent on events that nothing can signal any more");
    }
  }
}

}  // namespace sim
