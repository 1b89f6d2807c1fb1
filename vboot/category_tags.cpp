// Tags on categories of devices. A category is a PCI class, most with a subclass; its parts combine by AND.
#include "support/debug_print.h"
#include "vboot/policy_engine.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

constexpr TAG_PART Class(const char* value) { return {PciClassTag, "PciClassId", value, "PciClassTag"}; }
constexpr TAG_PART SubClass(const char* value) { return {PciSubClassTag, "PciSubClassId", value, "PciSubClassTag"}; }

constexpr TAG_PART kDisk[] = {Class("0x01")};
constexpr TAG_PART kNvme[] = {Class("0x01"), SubClass("0x08")};
constexpr TAG_PART kNetwork[] = {Class("0x02"), SubClass("0x00")};
constexpr TAG_PART kFibreChannel[] = {Class("0x0C"), SubClass("0x04")};
constexpr TAG_PART kOtherStorage[] = {Class("0x01"), SubClass("0x80")};

// Some categories may come once in a policy. processed is 0 until then.
template <typename Run>
EFI_STATUS OnceOnly(TAG_CALL& call, UINT32& processed, FormatString<> refusal, Run&& run) {
  if (processed != 0) {
    SetTagMessage(call, refusal);
    return EFI_INVALID_PARAMETER;
  }
  const EFI_STATUS status = run();
  if (!EFI_ERROR(status)) {
    processed = call.TargetBase;
  }
  return status;
}

constexpr UINT8 kManaged = 1;

// Network functions; a managed server looks at the subclass too.
EFI_STATUS SelectNetworkFunctions(TAG_CALL& call) {
  const std::span<const TAG_PART> parts(kNetwork);
  return RunTagParts(call, gPolicyEngine.ManagementMode == kManaged ? parts : parts.first(1), call.TagName);
}

// Storage adapters that boot iSCSI count as the target's own selection.
EFI_STATUS SelectOtherStorage(TAG_CALL& call) {
  const UINT32 secondBase = (call.TargetBase + 1) | kSelectedMark;  // above what the first pass selected
  TAG_CALL second{.TagName = call.TagName,
                  .TagValue = call.TagValue,
                  .Wrappers = call.Wrappers,
                  .TargetBase = secondBase,
                  .MatchCount = call.MatchCount};
  const EFI_STATUS status = RunTagParts(second, kOtherStorage, call.TagName);
  for (VBOOT_OPTION_WRAPPER* wrapper = call.Wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    if (wrapper->Option->Tag == secondBase) {
      wrapper->Option->Tag = call.TargetBase | kSelectedMark;
    }
  }
  call.Message = std::move(second.Message);
  return status;
}

}  // namespace

EFI_STATUS LocalHDDTag(TAG_CALL& call) { return RunTagParts(call, kDisk, "LocalHDD"); }
EFI_STATUS LocalHDDAnyTag(TAG_CALL& call) { return RunTagParts(call, kDisk, "LocalHDDAny"); }
EFI_STATUS LANTag(TAG_CALL& call) { return RunTagParts(call, kNetwork, "LAN"); }
EFI_STATUS SANTag(TAG_CALL& call) { return RunTagParts(call, kFibreChannel, "SAN"); }

EFI_STATUS ProcNVMEAnyTag(TAG_CALL& call) {
  return OnceOnly(call, gPolicyEngine.NvmeAnyBase, "Already processed a the NVMEAny tag.",
                  [&] { return RunTagParts(call, kNvme, "NVMEAny"); });
}
EFI_STATUS ProcLANAnyTag(TAG_CALL& call) {
  return OnceOnly(call, gPolicyEngine.LanAnyBase, "Already processed a the LANAny tag.",
                  [&] { return RunTagParts(call, kNetwork, "LANAny"); });
}
EFI_STATUS ProcSANAnyTag(TAG_CALL& call) {
  return OnceOnly(call, gPolicyEngine.SanAnyBase, "Already processed a the SANAny tag.",
                  [&] { return RunTagParts(call, kFibreChannel, "SANAny"); });
}

// Whatever stores data inside or at the front of the server: the parts combine by OR.
EFI_STATUS ProcLocalStorageAnyTag(TAG_CALL& call) {
  constexpr TAG_PART kParts[] = {
      Class("0x01"),
      {ExternalUsbTag, "ExternalUSB", nullptr},
      {InternalUsbTag, "InternalUSB", nullptr},
      {SDStorageTag, "SDStorage", nullptr},
  };
  return OnceOnly(call, gPolicyEngine.LocalStorageAnyBase, "Already processed the LocalStorageAny tag.", [&] {
    for (const TAG_PART& part : kParts) {
      if (&part != kParts) {
        ClearRefusalMarks(call.Wrappers);
      }
      static_cast<void>(RunTagPart(call, part));
    }
    call.Message.reset();
    SayWhenNothingMatched(call, "LocalStorageAny");
    return EFI_SUCCESS;
  });
}

EFI_STATUS ISCSITag(TAG_CALL& call) {
  if (const EFI_STATUS status = SelectNetworkFunctions(call); EFI_ERROR(status)) {
    return status;
  }
  ClearRefusalMarks(call.Wrappers);
  DebugPrint("Check for some Qlogic adapters \n");
  return SelectOtherStorage(call);
}

// An option ROM that boots iSCSI registers a hard drive in the BBS table.
EFI_STATUS ISCSIAnyTag(TAG_CALL& call) {
  constexpr TAG_PART kHardDrives[] = {{BbsTypeTag, "BbsType", "BBSHardDrive"}};
  DebugPrint("ISCSI Any \n");
  if (const EFI_STATUS status = SelectNetworkFunctions(call); EFI_ERROR(status)) {
    return status;
  }
  return RunTagParts(call, kHardDrives, "ISCSIAny");
}

}  // namespace bds
