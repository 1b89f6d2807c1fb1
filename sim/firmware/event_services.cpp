// Event, timer and task priority services (UEFI 2.10, 7.1).
#include "sim/firmware/service_call.h"

namespace sim {
namespace {

EFI_TPL EFIAPI RaiseTPL(EFI_TPL tpl) {
  CountOnly("RaiseTPL");
  return M().Events().Raise(tpl);
}
VOID EFIAPI RestoreTPL(EFI_TPL tpl) {
  CountOnly("RestoreTPL");
  M().Events().Restore(tpl);
}

EFI_STATUS EFIAPI CreateEvent(UINT32 type, EFI_TPL tpl, EFI_EVENT_NOTIFY notify, VOID* context, EFI_EVENT* event) {
  Trace("create event of type {:x} at {}", type, tpl);
  return Call("CreateEvent", [&] { return M().Events().Create(type, tpl, notify, context, nullptr, event); });
}
EFI_STATUS EFIAPI CreateEventEx(UINT32 type, EFI_TPL tpl, EFI_EVENT_NOTIFY notify, const VOID* context,
                                const EFI_GUID* group, EFI_EVENT* event) {
  Trace("create event of type {:x} at {} in group {}", type, tpl, Named(group));
  return Call("CreateEventEx",
              [&] { return M().Events().Create(type, tpl, notify, const_cast<VOID*>(context), group, event); });
}
EFI_STATUS EFIAPI SetTimer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 time) {
  Trace("set timer {:d} to {}", static_cast<int>(type), time);
  return Call("SetTimer", [&] { return M().Events().SetTimer(event, type, time); });
}
EFI_STATUS EFIAPI WaitForEvent(UINTN count, EFI_EVENT* events, UINTN* index) {
  Trace("wait for {} events", count);
  return Call("WaitForEvent", [&] { return M().Events().Wait(count, events, index); });
}
EFI_STATUS EFIAPI SignalEvent(EFI_EVENT event) {
  Trace("signal event {}", fmt::ptr(event));
  return Call("SignalEvent", [&] { return M().Events().Signal(event); });
}
EFI_STATUS EFIAPI CloseEvent(EFI_EVENT event) {
  Trace("close event {}", fmt::ptr(event));
  return Call("CloseEvent", [&] { return M().Events().Close(event); });
}
EFI_STATUS EFIAPI CheckEvent(EFI_EVENT event) {
  return Call("CheckEvent", [&] { return M().Events().Check(event); });
}

}  // namespace

void FillEventServices(EFI_BOOT_SERVICES& table) {
  table.RaiseTPL = RaiseTPL;
  table.RestoreTPL = RestoreTPL;
  table.CreateEvent = CreateEvent;
  table.CreateEventEx = CreateEventEx;
  table.SetTimer = SetTimer;
  table.WaitForEvent = WaitForEvent;
  table.SignalEvent = SignalEvent;
  table.CloseEvent = CloseEvent;
  table.CheckEvent = CheckEvent;
}

}  // namespace sim
