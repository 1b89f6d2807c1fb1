// The engine's results turned into the report's record, entry by entry, and the record's installation.
#include "flexboot/actual_order.h"

#include "bmc/management_mode.h"
#include "flexboot/policy_format.h"
#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kGenerate[] = "GenerateReportStruct";

struct REPORT_RUN {
  ACTUAL_BOOT_ORDER& Record;
  bool Standalone;
  UINTN Next = 0;  // the entry that the next option name completes
  UINTN Done = 0;  // entries without an error, as far as the document lists them
};

// policy is null for an option that no target of the policy took.
UINT8 TypeOf(const FLEXBOOT_TARGET* policy) {
  return policy != nullptr ? policy->Type : static_cast<UINT8>(TargetType::NonPolicyTarget);
}

void SetError(ACTUAL_BOOT_TARGET& out, UINT8 type, ACTUAL_ORDER_ERROR error) {
  out.Type = type;
  out.ErrorCode = error;
}

// What a standalone server tells of the device as well.
void AddPlace(ACTUAL_BOOT_TARGET& out, const POLICY_REPORT_ENTRY& entry) {
  for (const REPORT_DEVICE_INFO* info = entry.DeviceInfo.First; info != nullptr; info = info->Next) {
    SetField(out.DeviceType, info->DeviceClass.get());
    out.Slot = info->SlotId;
    out.Port = info->PortId;
    SetField(out.SubType, info->SubType.get());
  }
}

void Complete(ACTUAL_BOOT_TARGET& out, const POLICY_REPORT_ENTRY& entry, const FLEXBOOT_TARGET* policy, bool ok,
              REPORT_RUN& run) {
  out.HasOptionName = 1;
  SetField(out.DeviceName, entry.Text.get());
  if (run.Standalone) {
    AddPlace(out, entry);
  }
  if (ok) {
    SetField(out.RN, run.Standalone && policy != nullptr ? policy->RN : nullptr);
    out.Type = TypeOf(policy);
    run.Done += run.Next < kListedTargets ? 1 : 0;
  }
  ++run.Next;
}

// An error marks the entry that the target's next option name completes. When none follows, it ends with its target.
void ReportTarget(const POLICY_TARGET& target, const FLEXBOOT_TARGET* policy, REPORT_RUN& run) {
  bool ok = true;
  bool fresh = true;
  for (const POLICY_REPORT_ENTRY* entry = target.ReportList.First; entry != nullptr && run.Next < kActualTargets;
       entry = entry->Next) {
    ACTUAL_BOOT_TARGET& out = run.Record.Targets[run.Next];
    if (fresh) {
      out = {};
      fresh = false;
    }
    switch (entry->Category) {
      case ReportCategory::NoMatch:
        SetError(out, TypeOf(policy), kTargetNoMatch);
        ok = false;
        break;
      case ReportCategory::MultipleMatches:
        SetError(out, TypeOf(policy), kTargetMultipleMatches);
        if (target.AllowMultiple == 0) {
          DebugPrint("ValidPolicyTarget FALSE.\n");
          ok = false;
        }
        break;
      case ReportCategory::IgnoresPolicy:
        SetError(out, static_cast<UINT8>(TargetType::NonPolicyTarget), kTargetIgnoresPolicy);
        ok = false;
        break;
      case ReportCategory::OptionName:
        Complete(out, *entry, policy, ok, run);
        break;
      default:
        break;
    }
  }
}

void FillFromTargets(const POLICY_TARGET_LIST& targets, const FLEXBOOT_ORDER_HEADER& order, ACTUAL_BOOT_ORDER& record) {
  SetField(record.Version, order.Version);
  SetField(record.ServiceProfile, order.ServiceProfile);
  SetField(record.UniqueId, order.BootPolicyUniqueId);
  REPORT_RUN run{.Record = record, .Standalone = IsRackZephan() == 0};
  const std::span<const FLEXBOOT_TARGET> entries = PolicyTargets(order);
  UINTN number = 0;
  for (const POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next, ++number) {
    ReportTarget(*target, number < entries.size() ? &entries[number] : nullptr, run);
  }
  record.TotalActualTargets = static_cast<UINT8>(run.Done);
}

// A policy for one boot is reported as such once.
bool TakeOneTimeMark() {
  UINT8 oneTime = 0;
  UINTN size = 0;
  const EFI_STATUS status =
      ReadVariableInto(kOneTimeBootName, kPolicyVariablesGuid, std::as_writable_bytes(std::span(&oneTime, 1)), size);
  if (EFI_ERROR(status) || oneTime != 1) {
    return false;
  }
  oneTime = 0;
  DebugPrint("Clear onetime variable Status %r \n",
             WriteVariable(kOneTimeBootName, kPolicyVariablesGuid, kNonVolatileBoot, AsBytes(oneTime)));
  return true;
}

// The firmware's until the boot ends. It is owned before it is installed: the notifications run within that call. A
// record that is already installed stays, somebody may hold the interface.
EFI_STATUS Install(EFI_HANDLE& handle, KeptPtr<ACTUAL_BOOT_ORDER>& owner, PoolPtr<ACTUAL_BOOT_ORDER> record) {
  EFI_STATUS status = EFI_ALREADY_STARTED;
  if (!owner) {
    owner = std::move(record);
    status = BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<ACTUAL_BOOT_ORDER>, EFI_NATIVE_INTERFACE,
                                                      owner.get());
    if (EFI_ERROR(status)) {
      owner.reset();
    }
  }
  if (EFI_ERROR(status)) {
    DebugPrint("Failed Installing Actual Boot Order data:%r\n", status);
  }
  return status;
}

PoolPtr<ACTUAL_BOOT_ORDER> NewRecord(const char* routine) {
  PoolPtr<ACTUAL_BOOT_ORDER> record(static_cast<ACTUAL_BOOT_ORDER*>(AllocateZeroPool(sizeof(ACTUAL_BOOT_ORDER))));
  if (!record) {
    DebugPrint("%a:no memory for the report\n", routine);
  }
  return record;
}

}  // namespace

void GenerateReportStruct(const POLICY_TARGET_LIST& targets) {
  PoolPtr<ACTUAL_BOOT_ORDER> record = NewRecord(kGenerate);
  if (!record) {
    return;
  }
  FLEXBOOT_ORDER_HEADER* order = nullptr;
  if (!HaveVbootPolicy(&order)) {
    DebugPrint("%a:FlexBoot policy not present\n", kGenerate);
    return;
  }
  FillFromTargets(targets, *order, *record);
  SetField(record->LastUpdate, TakeOneTimeMark() ? "IXMOOneTimeBoot" : "IXMO");
  if (gFlexBoot.OneTimePolicy == ONE_TIME_POLICY::Read) {
    gFlexBoot.OneTimePolicy = ONE_TIME_POLICY::Applied;
  }
  if (!EFI_ERROR(Install(gFlexBoot.mActualOrderHandle, gFlexBoot.ActualOrder, std::move(record)))) {
    DebugPrint("Finished the actual boot order struct\n");
  }
}

void ReportOrderWithoutPolicy() {
  PoolPtr<ACTUAL_BOOT_ORDER> record = NewRecord("ReportOrderWithoutPolicy");
  if (!record) {
    return;
  }
  GenerateNoConfigActualOrderXML(*record);
  EFI_HANDLE handle = nullptr;
  if (!EFI_ERROR(Install(handle, gFlexBoot.OrderWithoutPolicy, std::move(record)))) {
    DebugPrint("Finished the actual boot order struct in rack standalone, when no config policy is there\n");
  }
}

}  // namespace bds
