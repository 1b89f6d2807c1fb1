#include "flexboot/stale_policy.h"

#include "bmc/boot_options_parameters.h"
#include "bmc/bt_file.h"
#include "bmc/pm_timer.h"
#include "bmc/state.h"
#include "flexboot/state.h"
#include "flexboot/used_policy.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kStalePolicy[] = "HandleStalePolicy";
constexpr char kOneTimeStale[] = "HandleOneTimeBootStale";
constexpr char kRackStale[] = "RackHandleStalePolicy";

constexpr char kPolicyFile[] = "ConfigPolicy.xml";
constexpr char kStalePolicyFile[] = "ConfigPolicy_stale.xml";
constexpr char kOneTimeFile[] = "OneTimeConfigPolicy.xml";

constexpr UINTN kTries = 2;               // of a renaming
constexpr UINTN kClosePause = 2'000'000;  // microseconds that the BMC gets to close a policy's file

void ForgetPolicy() {
  gPolicyEngine.FlexBootOrder = nullptr;
  gFlexBoot.LoadersWithdrawn = TRUE;
}

// Takes the policy's protocol away and makes the engine forget the interface that it keeps: whoever asks from now on
// finds no policy, and no loader of it gets an option. The record and the loaders stay in memory, someone may still
// read them. False when there is a handle and the protocol cannot be located.
bool WithdrawFlexBootOrder(const char* routine) {
  if (gFlexBoot.mFlexBootHandle == nullptr) {
    return true;
  }
  FLEXBOOT_ORDER_HEADER* order = nullptr;
  if (EFI_ERROR(LocateProtocol(order))) {
    ForgetPolicy();
    return false;
  }
  const EFI_STATUS status = BootServices()->UninstallProtocolInterface(gFlexBoot.mFlexBootHandle,
                                                                       &ProtocolGuid<FLEXBOOT_ORDER_HEADER>, order);
  if (!EFI_ERROR(status)) {
    gFlexBoot.mFlexBootHandle = nullptr;
    ForgetPolicy();
  }
  DebugPrint("%a:Uninstall FlexBootOrder protocol status %r\n", routine, status);
  return true;
}

// A BMC that was not heard is asked once more: a policy that was applied and is not called stale holds for another
// boot.
UINT8 OpenHeard(BT_FILE_CONTEXT& context, const char* name) {
  UINT8 result = BtOpenFile(context, name, BT_OPEN_FILE);
  if (result != BT_DONE && BtUnheard(context)) {
    PmTimerStall(kBtSettleTime);
    result = BtOpenFile(context, name, BT_OPEN_FILE);
  }
  return result;
}

// A file that is not there is left alone. A renaming that the BMC said nothing about is done again, unless it was done:
// a policy that keeps its name would be in force at the next boot, over the order that its user set.
void MakeStale(BT_FILE_CONTEXT& context, const char* oldName, const char* newName) {
  for (UINTN tries = 0; tries < kTries; ++tries) {
    if (OpenHeard(context, oldName) != BT_DONE) {
      return;
    }
    static_cast<void>(BtCloseFile(context));
    PmTimerStall(kBtSettleTime);
    const UINT8 result = BtRenameFile(context, oldName, newName);
    if (result == BT_DONE) {
      return;
    }
    DebugPrint("Error making %a stale (%x)\n", oldName, result);
    if (!BtUnheard(context)) {
      return;
    }
  }
}

// True, and closed again, when the BMC has the file.
bool FindFile(const char* name, FormatString<> found) {
  BT_FILE_CONTEXT context;
  if (EFI_ERROR(BtStatusToEfiStatus(OpenHeard(context, name)))) {
    return false;
  }
  DebugPrint(found);
  static_cast<void>(BtCloseFile(context));
  BootServices()->Stall(kClosePause);
  return true;
}

// True when the BMC took it.
bool ReportOneTimeStale() {
  auto* transport = LocateProtocol<IpmiTransport>();
  if (transport == nullptr) {
    DebugPrint("%a:no IPMI transport\n", kOneTimeStale);
    return false;
  }
  const EFI_STATUS status = SendOneTimeStaleRequest(*transport);
  if (!EFI_ERROR(status)) {
    DebugPrint("Making %a stale (%r)\n", kOneTimeFile, status);
  }
  return !EFI_ERROR(status);
}

void WriteStaleMarker() {
  constexpr char kMarker[] = {'D', 'u', 'm', 'm', 'y'};
  BT_FILE_CONTEXT context;
  CopyMemory(context.Name, kStalePolicyFile, sizeof(kStalePolicyFile));
  if (BtOpenFile(context, context.Name, BT_CREATE_FILE) != BT_DONE) {
    return;
  }
  static_cast<void>(BtWriteFile(context, kMarker, sizeof(kMarker)));
  DebugPrint("Writing Config Policy stale info to XML\n");
  static_cast<void>(BtCloseFile(context));
}

}  // namespace

EFI_STATUS HandleStalePolicy() {
  DebugPrint("FlexBoot policy is stale, marking it as such.\n");
  BT_FILE_CONTEXT context;
  MakeStale(context, "ActualOrder.xml", "ActualOrder_stale.xml");
  MakeStale(context, kPolicyFile, kStalePolicyFile);
  if (!WithdrawFlexBootOrder(kStalePolicy)) {
    return EFI_SUCCESS;
  }
  if (VariableExists(kFlexBootOrderName, kPolicyVariablesGuid)) {
    if (const EFI_STATUS status = DeleteVariable(kFlexBootOrderName, kPolicyVariablesGuid); EFI_ERROR(status)) {
      DebugPrint("%a:FlexBootOrder cannot be deleted:%r\n", kStalePolicy, status);
    }
  }
  return EFI_SUCCESS;
}

VOID EFIAPI HandleOneTimeBootStale(EFI_EVENT, VOID*) {
  DebugPrint("RACK STAND ALONE:OneTime Config policy is stale, marking it as such.\n");
  const bool applied = gFlexBoot.OneTimePolicy == ONE_TIME_POLICY::Applied;
  if (!FindFile(kOneTimeFile, "Found OneTimeConfigPolicy.xml File \n")) {
    if (applied) {
      NoteUsedPolicy();
    }
    return;
  }
  DebugPrint("Closed the file. Now Rename it .\n");
  if (gFlexBoot.OneTimePolicy == ONE_TIME_POLICY::Read) {
    DebugPrint("%a:%a was not applied, it stays for the next boot\n", kOneTimeStale, kOneTimeFile);
  }
  if (!applied) {
    return;
  }
  gFlexBoot.OneTimePolicy = ONE_TIME_POLICY::None;  // told once, however often a report is installed
  gBmc.OneTimePolicyInForce = TRUE;
  if (!ReportOneTimeStale()) {
    NoteUsedPolicy();
  }
  static_cast<void>(WithdrawFlexBootOrder(kOneTimeStale));
}

void ReportUsedPolicyAgain() {
  DebugPrint("%a:%a was used by an earlier boot, it is passed over\n", kOneTimeStale, kOneTimeFile);
  BootServices()->Stall(kClosePause);
  if (ReportOneTimeStale()) {
    ForgetUsedPolicy();
  }
}

VOID EFIAPI RackHandleStalePolicy(EFI_EVENT, VOID*) {
  DebugPrint("RACK STAND ALONE:FlexBoot policy is stale, marking it as such.\n");
  if (FindFile(kPolicyFile, "Found ConfigPolicy.xml file.\n")) {
    DebugPrint("Closed the file. create a dummy stale file\n");
    WriteStaleMarker();
  }
  static_cast<void>(WithdrawFlexBootOrder(kRackStale));
}

}  // namespace bds
