// What a target came to once all its tags were applied: its options get their final tags, its report their names.
#include "support/debug_print.h"
#include "vboot/option_class.h"
#include "vboot/policy_engine.h"
#include "vboot/policy_generated.h"
#include "vboot/policy_run.h"
#include "vboot/tag_processor.h"

namespace bds {
namespace {

void ReportMultipleMatches(POLICY_TARGET& target, UINTN count) {
  char text[64];
  FormatAscii(text, "Error: found %d matches for this target", count);
  AddReportEntry(target, ReportCategory::MultipleMatches, text);
  AddReportEntry(target, ReportCategory::OptionName, "Multiple matches found.");
}

void ReportNoMatch(POLICY_TARGET& target) {
  AddReportEntry(target, ReportCategory::NoMatch, "Error: no matches for this specified target.");
  if (gPolicyEngine.BootMode == kBootModeUefi) {
    AddReportEntry(target, ReportCategory::OptionName,
                   "Not found. Please verify presence of device and presence of UEFI loader on device.");
  } else if (gPolicyEngine.BootMode == kBootModeLegacy) {
    AddReportEntry(target, ReportCategory::OptionName, "Not found. Please verify device presence.");
  }
}

void Withhold(BOOT_OPTION& option) {
  option.Tag = kUnassigned;
  option.Priority = 0;
}

// Takes over the option as the target's n-th, n counted from 1.
void TakeOption(POLICY_TARGET& target, BOOT_OPTION& option, UINT32 base, UINT32 number) {
  RemovePolicyGeneratedMark(option);
  AddOptionToReport(target, option);
  if (!IsLegacyOption(option)) {
    option.Attributes |= LOAD_OPTION_ACTIVE;
  }
  option.GroupHeader = FALSE;
  if (number == 1 || target.AllowMultiple != 0) {
    option.Tag = base + number - 1;
    option.Priority = number - 1;
  } else {
    Withhold(option);
  }
}

}  // namespace

void FinishTargetMatches(POLICY_TARGET& target, UINT32 base) {
  UINT32 count = 0;
  BOOT_OPTION* first = nullptr;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (option->Tag == kRefusedTag) {
      option->Tag = kUnassigned;
    }
    if (option->Tag != (base | kSelectedMark)) {
      continue;
    }
    first = first != nullptr ? first : option;
    TakeOption(target, *option, base, ++count);
  }
  if (count == 0) {
    ReportNoMatch(target);
  } else if (count > 1 && target.AllowMultiple == 0) {
    Withhold(*first);
    ReportMultipleMatches(target, count);
  }
}

}  // namespace bds
