// The step that tags the boot options.
#include "vboot/policy_engine.h"

#include "bmc/management_mode.h"
#include "bootopt/dumps/dumps.h"
#include "bootopt/names/bbs_names.h"
#include "bootopt/steps.h"
#include "core/boot.h"
#include "flexboot/actual_order.h"
#include "support/debug_print.h"
#include "support/event.h"
#include "vboot/option_pci.h"
#include "vboot/policy_observer.h"
#include "vboot/policy_run.h"
#include "vboot/tag_processor.h"

namespace bds {

namespace {

constexpr char kSetTags[] = "VBootSetBootOptionTags";

// The boot order table decides. The built-in application is always offered.
void SetTagsWithoutPolicy() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (IsLegacyOption(*option)) {
      continue;
    }
    DebugPrint("I'm a Rack server!\n");
    if (IsBuiltInApplicationOption(*option)) {
      option->Attributes |= LOAD_OPTION_ACTIVE;
    }
  }
  SetDefaultBootOptionTags();
}

// Runs every target of the policy over the wrapped options. counter is the next free base afterwards.
void RunTargets(POLICY_TARGET_LIST& targets, OPTION_WRAPPER_LIST& wrappers, UINT32& counter) {
  DebugPrint("Running tag processors\n");
  counter = kFirstTargetBase;
  for (POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
    ObservePolicy({.Moment = PolicyMoment::TargetBegins, .Target = target, .Before = counter});
    for (const POLICY_TAG* tag = target->TagList.First; tag != nullptr; tag = tag->Next) {
      DispatchTag(*target, *tag, wrappers, counter);
    }
    FinishTargetMatches(*target, counter);
    ObservePolicy({.Moment = PolicyMoment::TargetEnds, .Target = target});
    counter += kTargetTagRange;
  }
}

// The port names by which disks on SATA ports are told apart.
void NameLegacyPorts() {
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (option->BbsEntry != nullptr) {
      RewriteLegacyPortName(*option->BbsEntry);
    }
  }
}

VOID EFIAPI ReportLegacyBoot(EFI_EVENT event, VOID*) {
  DebugPrint("Final BBS table report\n");
  ReportBbsDevices();
  static_cast<void>(BootServices()->CloseEvent(event));
}

void ReportBbsOnLegacyBoot() {
  Event legacyBoot;
  if (!EFI_ERROR(legacyBoot.CreateInGroup(gEfiEventLegacyBootGuid, ReportLegacyBoot))) {
    legacyBoot.release();
  }
}

// Making the targets may switch the firmware's mode on a standalone server, which changes active bits and deletes no
// option: the wrappers stay good.
// A policy that cannot be turned into targets takes no option away from the group order.
void SetTagsByTargets(POLICY_TARGET_LIST& targets, OPTION_WRAPPER_LIST& wrappers) {
  NameLegacyPorts();
  const EFI_STATUS generated = GenerateListFromPolicy(targets);
  if (EFI_ERROR(generated)) {
    DebugPrint("%a: no targets (%r), using the default group order\n", kSetTags, generated);
    RemoveAll(wrappers);
    SetTagsWithoutPolicy();
    return;
  }
  ShowTargets(targets);
  UINT32 counter = 0;
  RunTargets(targets, wrappers, counter);
  gPolicyEngine.TaggedByPolicy = 1;
  RemoveAll(wrappers);
  HandleNonPolicyItems(counter, targets);
  PublishResults(targets);
  GenerateReportStruct(targets);
  FreeTargetList(targets);
  DumpBootOptionList(BootOptionList, "On FlexBoot exit");
  ReportBbsOnLegacyBoot();
}

void SetTagsFromPolicy() {
  DebugPrint("%a:Have FlexBoot policy.\n", kSetTags);
  const PoolPtr<POLICY_TARGET_LIST> targets = NewListHeader<POLICY_TARGET>();
  if (!targets) {
    DebugPrint("%a:Failed obtaining memory for TargetList\n", kSetTags);
    return;
  }
  const PoolPtr<OPTION_WRAPPER_LIST> wrappers = NewListHeader<VBOOT_OPTION_WRAPPER>();
  if (!wrappers) {
    DebugPrint("%a:Failed obtaining memory for vBootOptionList\n", kSetTags);
    return;
  }
  gPolicyEngine.ManagementMode = IsRackZephan();
  DumpBootOptionList(BootOptionList, "On FlexBoot entry");
  CreateOptionWrappers(*wrappers);
  if (IsStbuEfiEnabled()) {
    DebugPrint("STBU EFI is enabled \n");
    gPolicyEngine.BootMode = kBootModeUefi;
    TagStbuDefaults(*wrappers, kFirstTargetBase);
    RemoveAll(*wrappers);
    return;
  }
  SetTagsByTargets(*targets, *wrappers);
}

}  // namespace

void VBootSetBootOptionTags() {
  const bool policy = HaveVbootPolicy();
  if (policy || IsStbuEfiEnabled()) {
    SetTagsFromPolicy();
    ForgetPciPlaces();
    return;
  }
  DebugPrint("%a:FlexBoot policy not present, BIOS will use boot order table instead\n", kSetTags);
  SetTagsWithoutPolicy();
}

}  // namespace bds
