// The policy and what it came to, as text: in the log, in the policy debug text, in a variable for the central manager.
#include "support/debug_print.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"
#include "vboot/policy_run.h"

namespace bds {
namespace {

constexpr EFI_GUID kFlexBootReportGuid{0x9DAE27E6, 0x9CC9, 0x4972, {0xBC, 0xDB, 0x82, 0x45, 0x73, 0xA2, 0xC2, 0xF6}};
constexpr UINT32 kVolatileBoot = 0x2;  // boot service access alone
constexpr UINT8 kManaged = 1;

const char* StateWord(const BOOT_OPTION& option) {
  if (option.GroupHeader != FALSE) {
    return "(group header)";
  }
  return IsMatched(option) ? "" : "(orphan)";
}

void SummarizeOptions() {
  AppendPolicyDebugText("\nBoot options after policy application:\n");
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    AppendPolicyDebugText("Boot%04X, %S %s%s", option->BootOptionNumber, option->Description.get(), StateWord(*option),
                          (option->Attributes & LOAD_OPTION_ACTIVE) != 0 ? "" : "(disabled)");
    if (option->Tag == kUnassigned) {
      AppendPolicyDebugText(" - Not tagged by the policy (will not boot from)\n");
    } else {
      AppendPolicyDebugText(" - Tagged as 0x%x by policy (lower value is higher priority)\n", option->Tag);
    }
  }
}

void PublishReport(Bytes report) {
  const EFI_STATUS status = WriteVariable(u"FlexBootReport", kFlexBootReportGuid, kVolatileBoot, report);
  if (EFI_ERROR(status)) {
    DebugPrint("FlexBootReport: %r\n", status);
  }
  AppendPolicyDebugText("\nResults of applying policy to available hardware.\n");
  AppendPolicyDebugData(report);
}

}  // namespace

void ShowTargets(const POLICY_TARGET_LIST& targets) {
  AppendPolicyDebugText("\nThe policy as used by the policy engine.\n");
  for (const POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
    DebugPrint("BootTarget_%a\n", target->Name);
    AppendPolicyDebugText("BootTarget_%s\n", target->Name);
    for (const POLICY_TAG* tag = target->TagList.First; tag != nullptr; tag = tag->Next) {
      DebugPrint("  %a value = %a\n", tag->Name, tag->Value);
      AppendPolicyDebugText("  %s value = %s\n", tag->Name, tag->Value);
    }
  }
}

void PublishResults(const POLICY_TARGET_LIST& targets) {
  if (gPolicyEngine.ManagementMode != kManaged) {
    return;
  }
  DebugPrint("%a:FlexBoot Report data:\n", "VBootSetBootOptionTags");
  DumpReportData(targets);
  PoolPtr<char> text;
  UINTN length = 0;
  const EFI_STATUS status = SerializeReportData(targets, text, length);
  DebugPrint("After SerializeReportData \n");
  if (!EFI_ERROR(status)) {
    PublishReport({reinterpret_cast<const std::byte*>(text.get()), length});
  }
  SummarizeOptions();
  DebugPrint("After DumpReportData SerializeReportData \n");
}

}  // namespace bds
