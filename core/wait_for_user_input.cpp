// A fixed pause early in the boot, long enough for keyboards to be found. Keys do not shorten it.
#include "core/steps.h"
#include "support/debug_print.h"
#include "support/event.h"

namespace bds {
namespace {

constexpr UINT64 kPause = 30'000'000;  // in units of 100 ns

// WaitForEvent is allowed at TPL_APPLICATION only.
EFI_TPL LowerToApplication() {
  const EFI_TPL before = BootServices()->RaiseTPL(TPL_HIGH_LEVEL);
  BootServices()->RestoreTPL(TPL_APPLICATION);
  return before;
}

void WaitForTimer(EFI_EVENT timer) {
  const EFI_TPL before = LowerToApplication();
  UINTN index = 0;
  const EFI_STATUS status = BootServices()->WaitForEvent(1, &timer, &index);
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR: WaitForUserInput:WaitForEvent = %r, Index = %d\n", status, index);
  }
  if (before > TPL_APPLICATION) {
    static_cast<void>(BootServices()->RaiseTPL(before));
  }
}

}  // namespace

void WaitForUserInput() {
  Event timer;
  EFI_STATUS status = timer.Create(EVT_TIMER, TPL_CALLBACK, nullptr);
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR: WaitForUserInput:CreateEvent = %r\n", status);
    return;
  }
  status = BootServices()->SetTimer(timer.get(), TimerRelative, kPause);
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR: WaitForUserInput:SetTimer = %r\n", status);  // an unset timer would never end the wait
  } else {
    WaitForTimer(timer.get());
  }
  status = timer.Close();
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR : WaitForUserInput:CloseEvent = %r\n", status);
  }
}

}  // namespace bds
