// The boot order table's step, of which the table itself is still to be built: so far it reads the boot policy, which
// takes the table's place, and says whether there is one.
#include "bmc/management_mode.h"
#include "bmc/steps.h"
#include "flexboot/actual_order.h"
#include "flexboot/intake.h"
#include "flexboot/stale_policy.h"
#include "support/debug_print.h"
#include "support/event.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kEntryPoint[] = "BootOrderTableEntryPoint";

bool Register(const EFI_GUID& guid, EFI_EVENT_NOTIFY notify) {
  const EFI_STATUS status = NotifyOnProtocol(guid, notify);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Protocol registration failed:%r\n", kEntryPoint, status);
  }
  return !EFI_ERROR(status);
}

// True when a policy was obtained. A standalone server without one reports its actual order all the same.
bool ObtainPolicy(bool standalone) {
  FLEXBOOT_ORDER_HEADER* order = nullptr;
  if (!EFI_ERROR(ExtractZephBootOrder(&order))) {
    DebugPrint("%a:Obtained FlexBOOT policy\n", kEntryPoint);
    return true;
  }
  if (standalone && !Register(ProtocolGuid<ACTUAL_BOOT_ORDER>, ExportActualOrderXML)) {
    DebugPrint("Cannot fetch the actual Order \n");
  }
  DebugPrint("%a:Do not have FlexBOOT policy, going traditional way\n", kEntryPoint);
  return false;
}

}  // namespace

void BootOrderTableEntryPoint() {
  const bool standalone = IsRackZephan() == 0;
  gPolicyEngine.BotUpdatedOldWay = 0;
  if (standalone) {
    static_cast<void>(Register(kPolicyStaleSignalGuid, RackHandleStalePolicy));
  }
  const UINT8 havePolicy = ObtainPolicy(standalone) ? 1 : 0;
  const EFI_STATUS status =
      SetVariableReplacing(kHavePboName, kPolicyVariablesGuid, kNonVolatileBoot, AsBytes(havePolicy));
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing %s:%r\n", kEntryPoint, kHavePboName, status);
  }
}

}  // namespace bds
