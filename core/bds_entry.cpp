// BdsEntry: the preparations, then the steps in their fixed order.
#include "core/bds_entry.h"

#include "core/boot_start_time.h"
#include "core/state.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT16 kDefaultTimeout = 3;  // seconds that the boot menu waits

void CreateDefaultTimeout() {
  if (!VariableExists(u"Timeout", gEfiGlobalVariableGuid)) {
    static_cast<void>(
        WriteVariable(u"Timeout", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, AsBytes(kDefaultTimeout)));
  }
}

void TakeAllHandles() {
  HANDLE_ARRAY& all = gCore.AllHandles;
  if (EFI_ERROR(
          WatchedStatus(BootServices()->LocateHandleBuffer(AllHandles, nullptr, nullptr, &all.Count, &all.Handles)))) {
    all = {};
  }
}

}  // namespace

void RunSteps(const StepFunction* steps, const char* const* names) {
  for (; *steps != nullptr; ++steps, ++names) {
    DebugPrintAt(DEBUG_LEVEL_STEP, "BDS.%a(%p)\n", *names, reinterpret_cast<const void*>(*steps));
    (*steps)();
  }
  DebugPrint("BdsEntry:Out of BdsEntry, this should never happen\n");
}

void BdsEntry() {
  CreateDefaultTimeout();
  RegisterBootStartTimeStamp();
  DebugPrint("BDS:Executing BdsEntry\n");
  TakeAllHandles();
  RunSteps(kSteps.data(), kStepNames.data());
}

}  // namespace bds
