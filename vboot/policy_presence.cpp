// Whether a boot policy is in force on this boot.
#include "platform/flexboot_protocol.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/setup.h"
#include "support/variables.h"
#include "vboot/boot_flow.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kHavePolicy[] = "HaveVbootPolicy";

// True when a request from the boot menu sets the policy aside for this boot.
bool RequestOverridesPolicy() {
  switch (ReadBootFlow()) {
    case kBootFlowF6:
      DebugPrint("%a:F6 requested, will present all devices\n", kHavePolicy);
      return false;  // the policy stays, and its engine adds the other devices
    case kBootFlowF12:
      DebugPrint("%a:F12 requested, will present all devices\n", kHavePolicy);
      return true;
    case kBootFlowF8:
      DebugPrint("%a:F8 requested, will present all devices\n", kHavePolicy);
      return true;
    case kBootFlowF7:
      DebugPrint("%a:F7 requested, will present all devices\n", kHavePolicy);
      return true;
    case kBootFlowSdCard:
      DebugPrint("%a:Quillcard BootOverride requested, will present all devices\n", kHavePolicy);
      return true;
    default:
      return false;
  }
}

EFI_STATUS LocatePolicy() {
  const EFI_STATUS status = LocateProtocol(gPolicyEngine.FlexBootOrder);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed locating FlexBootOrder protocol:%r\n", kHavePolicy, status);
  }
  return status;
}

}  // namespace

UINT32 ReadBootFlow() {
  PoolBuffer flow;
  if (EFI_ERROR(ReadVariable(kBootFlowName, kBootFlowGuid, flow)) || flow.Size < sizeof(UINT32)) {
    return kBootFlowNone;
  }
  return LoadUnaligned<UINT32>(flow.Data.get());
}

bool HaveVbootPolicy(FLEXBOOT_ORDER_HEADER** order) {
  if (RequestOverridesPolicy()) {
    return false;
  }
  if (gPolicyEngine.BotUpdatedOldWay == 1) {
    DebugPrint("%a:BMC Updated BOT in Old way, Returning FALSE\n", kHavePolicy);
    return false;
  }
  if (gPolicyEngine.FlexBootOrder == nullptr && EFI_ERROR(LocatePolicy())) {
    return false;
  }
  if (gPolicyEngine.FlexBootOrder != nullptr && order != nullptr) {
    *order = gPolicyEngine.FlexBootOrder;
  }
  return gPolicyEngine.FlexBootOrder != nullptr;
}

bool IsStbuEfiEnabled() {
  SetupVariable setup;
  return !EFI_ERROR(ReadSetup(setup)) && setup.At(kSetupStbuMode) != 0;
}

}  // namespace bds
