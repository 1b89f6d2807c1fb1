// The management mode's queries and the steps that record it and follow a policy file's presence.
#include "bmc/management_mode.h"

#include "bmc/bt_file.h"
#include "bmc/pm_timer.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/setup.h"

namespace bds {
namespace {

constexpr UINT8 kEfiOptionsOff = 0;
constexpr UINT8 kEfiOptionsOn = 1;
constexpr UINT8 kEfiOptionsByPolicy = 2;

bool PolicyFileExists() {
  BT_FILE_CONTEXT context;
  const UINT8 result = BtOpenFile(context, "ConfigPolicy.xml", BT_OPEN_FILE);
  if (result != BT_DONE) {
    DebugPrint("%a:XML file open failed:%x\n", "CheckZephan_EFIBootSupport", result);
  }
  static_cast<void>(BtCloseFile(context));
  PmTimerStall(kBtSettleTime);
  return result == BT_DONE;
}

UINT8 QueryMode(const char* query) {
  const ZEPHAN_MODE_INFO* info = FindZephanMode();
  if (info == nullptr) {
    DebugPrint("%a: fails to locate protocol using VEYRA_ZEPHAN_MODE_GUID. \n", query);
    return 0;
  }
  return info->Mode;
}

}  // namespace

const ZEPHAN_MODE_INFO* FindZephanMode() { return LocateProtocol<ZEPHAN_MODE_INFO>(); }

const ZEPHAN_MODE_INFO* LocateZephanMode() {
  const ZEPHAN_MODE_INFO* info = FindZephanMode();
  if (info == nullptr) {
    DebugPrint("UEFIBoot: fails to locate protocol using VEYRA_ZEPHAN_MODE_GUID. \n");
  }
  return info;
}

UINT8 IsRackZephan() { return QueryMode("IsRackZephan"); }

UINT8 IsRackZephanFunc() { return QueryMode("IsRackZephanFunc"); }

void DetectZephanConfigMode() {
  gBmc.ZephanConfigMode = FALSE;
  const ZEPHAN_MODE_INFO* info = LocateZephanMode();
  if (info == nullptr) {
    return;
  }
  DebugPrint("UEFIBoot: Zephan mode M:%x F:%x. \n", info->Mode, info->ConfigFlag);
  gBmc.ZephanConfigMode = info->Mode == 1 && info->ConfigFlag == 1;
  DebugPrint("Detect ZephanConfigMode:%d\n", gBmc.ZephanConfigMode);
}

void CheckZephan_EFIBootSupport() {
  const bool policyExists = PolicyFileExists();
  SetupVariable setup;
  if (const EFI_STATUS status = ReadSetup(setup); EFI_ERROR(status)) {
    DebugPrint("Error on Reading the Setup Variables:%r\n", status);
    return;
  }
  UINT8& enable = setup.Bytes[kSetupEfiBootOptionsEnable];
  if (setup.Size <= kSetupEfiBootOptionsEnable) {
    return;  // the variable has no such byte to switch
  }
  const bool switchedOnByPolicy = enable == kEfiOptionsOff && policyExists;
  const bool onWithoutPolicy = enable == kEfiOptionsOn && !policyExists;  // by hand: it stays on, written as it is
  if (!switchedOnByPolicy && !onWithoutPolicy) {
    return;
  }
  if (switchedOnByPolicy) {
    enable = kEfiOptionsByPolicy;
  }
  DebugPrint("SetupData.EfiBootOptionsEnable:%0x\n", enable);
  if (const EFI_STATUS status = WriteSetup(setup); EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing Setup:%r\n", "CheckZephan_EFIBootSupport", status);
  }
}

}  // namespace bds
