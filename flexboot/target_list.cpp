// The policy's record made the list of targets that the engine works on, and the boot mode settled on the way.
#include "bmc/management_mode.h"
#include "bmc/steps.h"
#include "flexboot/policy_targets.h"
#include "flexboot/state.h"
#include "flexboot/target_builder.h"
#include "support/debug_print.h"
#include "support/setup.h"
#include "support/text.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

// The firmware's own boot mode, as its Setup variable says.
struct FIRMWARE_MODE {
  SetupVariable Setup;
  bool Readable = false;
  bool Uefi = false;
};

FIRMWARE_MODE ReadFirmwareMode() {
  FIRMWARE_MODE mode;
  if (EFI_ERROR(ReadSetup(mode.Setup))) {
    DebugPrint("No setup data, legacy mode assumed\n");
    return mode;
  }
  mode.Readable = true;
  mode.Uefi = mode.Setup.At(kSetupUefiMode) != 0;
  if (mode.Uefi) {
    DebugPrint("BIOS operates in UEFI mode\n");
  } else {
    DebugPrint("BIOS operates in Legacy mode\n");
  }
  return mode;
}

UINT8 ModeOfPolicy(const FLEXBOOT_ORDER_HEADER& order) {
  const char* type = order.BootType;
  if (TextEqual(type, "legacy")) {
    return kBootModeLegacy;
  }
  return TextEqual(type, "uefi") ? kBootModeUefi : kBootModeOther;
}

bool SecureBootIsOn() {
  UINT8 secureBoot = 0;
  UINTN size = 0;
  return !EFI_ERROR(ReadVariableInto(u"SecureBoot", gEfiGlobalVariableGuid,
                                     std::as_writable_bytes(std::span(&secureBoot, 1)), size)) &&
         size == sizeof(secureBoot) && secureBoot != 0;
}

// Makes the firmware's mode that of the policy, now and for later boots.
void SwitchFirmware(FIRMWARE_MODE& mode, bool uefi) {
  mode.Uefi = uefi;
  if (!mode.Readable || mode.Setup.Size <= kSetupUefiMode) {
    return;
  }
  UINT8& byte = mode.Setup.Bytes[kSetupUefiMode];
  byte = uefi ? 1 : 0;
  DebugPrint("BIOS UEFI mode token changed to %x according to the boot mode in Config policy \n", byte);
  if (const EFI_STATUS status = WriteSetup(mode.Setup); EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing Setup:%r\n", "GenerateListFromPolicy", status);
  }
  RemoveNonSupportedBootOptions();
}

// On a standalone server the policy's mode and the firmware's have to agree. Secure Boot forbids to switch.
void ReconcileModes(FIRMWARE_MODE& mode) {
  UINT8& bootMode = gPolicyEngine.BootMode;
  if (SecureBootIsOn() || bootMode == kBootModeOther) {
    bootMode = mode.Setup.At(kSetupUefiMode);
    return;
  }
  const bool policyUefi = bootMode == kBootModeUefi;
  if (mode.Uefi != policyUefi) {
    SwitchFirmware(mode, policyUefi);
  }
}

void BuildTranslationTableOnce() {
  DebugPrint("VeyraOrlaList is 0x%x\n", gFlexBoot.VeyraOrlaList.get());
  if (!gFlexBoot.VeyraOrlaList) {
    DebugPrint("Building translation table.\n ");
    DebugPrint("returns %r\n", CreateVeyraOrlaXlatTbl());
  }
}

// The loaders of target k join the tags of target k.
void MoveLoaderTags(POLICY_TARGET_LIST& targets) {
  if (!gFlexBoot.mUefiParamTargets) {
    return;
  }
  POLICY_TARGET* from = gFlexBoot.mUefiParamTargets.get()->First;
  for (POLICY_TARGET* to = targets.First; to != nullptr && from != nullptr; to = to->Next, from = from->Next) {
    while (POLICY_TAG* tag = from->TagList.First) {
      Unlink(from->TagList, tag);
      LinkLast(to->TagList, tag);
    }
  }
}

}  // namespace

EFI_STATUS GenerateListFromPolicy(POLICY_TARGET_LIST& targets) {
  FLEXBOOT_ORDER_HEADER* order = nullptr;
  if (!HaveVbootPolicy(&order)) {
    DebugPrint("%a:FlexBoot policy not present\n", "GenerateListFromPolicy");
    return EFI_UNSUPPORTED;
  }
  FIRMWARE_MODE mode = ReadFirmwareMode();
  BuildTranslationTableOnce();
  CreateSlotPortInfo();
  gPolicyEngine.BootMode = ModeOfPolicy(*order);
  const UINT8 management = IsRackZephan();
  if (management == 0) {
    ReconcileModes(mode);
  }
  DebugPrint("Zephan BootOrder Type=%a\n", gPolicyEngine.BootMode == kBootModeLegacy ? "Legacy" : "UEFI");
  const TARGET_CONTEXT context{mode.Uefi, management == 1};
  for (FLEXBOOT_TARGET& entry : PolicyTargets(*order)) {
    const TargetRow* row = entry.Valid == 1 ? FindTargetRow(entry.Type) : nullptr;
    if (row == nullptr) {
      break;
    }
    if (!BuildPolicyTarget(entry, *row, context, targets)) {
      FreeTargetList(targets);
      return EFI_OUT_OF_RESOURCES;
    }
  }
  MoveLoaderTags(targets);
  return EFI_SUCCESS;
}

}  // namespace bds
