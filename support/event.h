// Owners of an event and of a raised task priority.
#pragma once

#include <utility>

#include "support/services.h"

namespace bds {

// A notification that has nothing to do.
inline VOID EFIAPI EmptyNotify(EFI_EVENT, VOID*) {}

// Move-only owner of an event; closes it.
class Event {
 public:
  Event() = default;
  Event(Event&& other) noexcept : event_(other.release()) {}
  Event& operator=(Event&& other) noexcept {
    EFI_EVENT taken = other.release();
    static_cast<void>(Close());
    event_ = taken;
    return *this;
  }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  ~Event() { static_cast<void>(Close()); }

  // Each creates the event in place of the one held.
  [[nodiscard]] EFI_STATUS Create(UINT32 type, EFI_TPL tpl, EFI_EVENT_NOTIFY notify, void* context = nullptr) {
    static_cast<void>(Close());
    return BootServices()->CreateEvent(type, tpl, notify, context, &event_);
  }
  [[nodiscard]] EFI_STATUS CreateInGroup(const EFI_GUID& group, EFI_EVENT_NOTIFY notify, void* context = nullptr) {
    static_cast<void>(Close());
    return BootServices()->CreateEventEx(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, notify, context, &group, &event_);
  }

  EFI_EVENT get() const { return event_; }
  explicit operator bool() const { return event_ != nullptr; }
  // Hands the event over to the firmware for the rest of the boot (a notification that stays registered).
  EFI_EVENT release() { return std::exchange(event_, nullptr); }
  EFI_STATUS Close() {
    EFI_EVENT event = release();
    return event != nullptr ? BootServices()->CloseEvent(event) : EFI_SUCCESS;
  }

 private:
  EFI_EVENT event_ = nullptr;
};

// Creates an event of the group with an empty notification, signals it and closes it.
void SignalEventGroup(const EFI_GUID& group);

// Registers notify at TPL_CALLBACK for installations of the protocol; the event stays for the rest of the boot.
// The registration, when asked for, is the search key for LocateHandle(ByRegisterNotify).
[[nodiscard]] EFI_STATUS NotifyOnProtocol(const EFI_GUID& guid, EFI_EVENT_NOTIFY notify, void* context = nullptr,
                                          void** registration = nullptr);

// Installs a null interface of the protocol on a new handle, so that its listeners run.
// The handle is returned when the caller asks for it.
[[nodiscard]] EFI_STATUS InstallNullProtocol(const EFI_GUID& guid, EFI_HANDLE* handle = nullptr);

}  // namespace bds
