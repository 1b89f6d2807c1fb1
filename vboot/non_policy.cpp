// The options that no target of the policy took.
#include "bootopt/bbs_table.h"
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/boot_flow.h"
#include "vboot/option_class.h"
#include "vboot/policy_engine.h"
#include "vboot/policy_generated.h"
#include "vboot/policy_observer.h"
#include "vboot/policy_run.h"

namespace bds {
namespace {

// How such an option appears in the report.
struct NON_POLICY_LABELS {
  const char* TargetName;
  const char* TagName;
  const char* ReportText;
};
constexpr NON_POLICY_LABELS kDefaultLabels{"EFI optn", "UefiOsGenerated", "OS or outside agent UEFI based option"};
constexpr NON_POLICY_LABELS kPopupLabels{"Boot popup", "KeepForBootPopup", "Option allowed due to boot popup menu"};

// The rules of one run.
struct NON_POLICY_RUN {
  bool Managed;
  bool Standalone;
  bool Popup;        // F6: the boot menu shows every device
  bool KeepsActive;  // the request lets UEFI options boot that no target took
  bool TagsOptions;  // the policy had targets
  const NON_POLICY_LABELS& Labels;
  POLICY_TARGET_LIST& Targets;
  UINT32& Counter;
};

void Observe(const BOOT_OPTION& option, const char* what) {
  ObservePolicy({.Moment = PolicyMoment::NonPolicy, .Option = &option, .Text = what});
}

void SetActive(BOOT_OPTION& option, bool active) {
  option.Attributes = active ? option.Attributes | LOAD_OPTION_ACTIVE : option.Attributes & ~LOAD_OPTION_ACTIVE;
}

void DeleteWithBbsEntry(BOOT_OPTION& option, const char* why) {
  Observe(option, why);
  DeleteBbsEntry(option);
  DeleteBootOption(BootOptionList, &option);
}

// False when the pool is exhausted; the option keeps its tag then and is missing from the report.
bool AddPseudoTarget(const NON_POLICY_RUN& run, const BOOT_OPTION& option) {
  POLICY_TARGET* target = NewPolicyTarget(run.Targets);
  if (target == nullptr) {
    return false;
  }
  FormatAscii(target->Name, "%s", run.Labels.TargetName);
  const bool tagged = AddPolicyTag(run.Labels.TagName, 0, *target);
  AddReportEntry(*target, ReportCategory::IgnoresPolicy, run.Labels.ReportText);
  AddOptionToReport(*target, option);
  return tagged;
}

void TagOption(const NON_POLICY_RUN& run, BOOT_OPTION& option) {
  if (run.TagsOptions) {
    option.Tag = run.Counter;
  }
  Observe(option, run.Popup ? "kept for the boot menu" : "follows the targets");
  if (!AddPseudoTarget(run, option)) {
    DebugPrint("%a: no memory for the report of an option\n", "HandleNonPolicyItems");
  }
  if (run.Managed) {
    SetActive(option, run.KeepsActive);
  }
  run.Counter += kTargetTagRange;
}

void HandleUntagged(const NON_POLICY_RUN& run, BOOT_OPTION& option) {
  const bool legacy = IsLegacyOption(option);
  if (run.Managed && !legacy) {
    SetActive(option, run.KeepsActive);
  }
  option.Attributes &= LOAD_OPTION_ACTIVE;
  if (option.Attributes == 0) {
    Observe(option,
            run.Managed && !legacy ? "switched off: a managed server boots what its policy names" : "not active");
    return;
  }
  if (!run.Popup && legacy && !run.Standalone) {
    DeleteWithBbsEntry(option, "deleted: no target took the legacy option of a managed server");
    return;
  }
  TagOption(run, option);
}

void HandleOption(const NON_POLICY_RUN& run, BOOT_OPTION& option) {
  if (IsPolicyGenerated(option)) {
    if (option.Tag == kUnassigned) {
      DeleteWithBbsEntry(option, "deleted: made for the policy, and no target took it");
    }
    return;
  }
  if (option.Tag != kUnassigned) {
    return;
  }
  if (!IsMatched(option)) {
    DebugPrint("Skipping on orphaned option %a\n", option.Description.get());
    Observe(option, "its device is not there");
    return;
  }
  HandleUntagged(run, option);
}

}  // namespace

void HandleNonPolicyItems(UINT32& counter, POLICY_TARGET_LIST& targets) {
  constexpr UINT8 kStandaloneMode = 0;
  constexpr UINT8 kManagedMode = 1;
  const UINT8 mode = gPolicyEngine.ManagementMode;
  const UINT32 flow = ReadBootFlow();
  const bool popup = flow == kBootFlowF6;
  if (popup) {
    DebugPrint("%a:F6 requested, will present all devices\n", "HandleNonPolicyItems");
  } else {
    DebugPrint("I'm a Rack server!\n");
  }
  const NON_POLICY_RUN run{.Managed = mode == kManagedMode,
                           .Standalone = mode == kStandaloneMode,
                           .Popup = popup,
                           .KeepsActive = popup || flow == kBootFlowPopup,
                           .TagsOptions = counter != kFirstTargetBase,
                           .Labels = popup ? kPopupLabels : kDefaultLabels,
                           .Targets = targets,
                           .Counter = counter};
  if (!run.TagsOptions) {
    SortList(BootOptionList, CompareByPriority);
  }
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    HandleOption(run, *option);
    option = next;
  }
}

}  // namespace bds
