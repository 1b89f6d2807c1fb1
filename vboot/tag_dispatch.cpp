// The processor table, the dispatch of a target's tags over it, and which options a policy may select at all.
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/policy_engine.h"
#include "vboot/policy_observer.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

constexpr bool kAnnounces = true;

constexpr TAG_PROCESSOR_ROW kTagProcessors[] = {
    {"ISCSITag", "ISCSI", nullptr, ISCSITag, false},
    {"MacAddressTag", "MACAddress", nullptr, MacAddressTag, false},
    {"ProcPrimaryTargetWWPN", "PrimaryTargetWWPN", nullptr, ProcPrimaryTargetWWPN, false},
    {"ProcLANAnyTag", "LANAny", nullptr, ProcLANAnyTag, false},
    {"ProcSANAnyTag", "SANAny", nullptr, ProcSANAnyTag, false},
    {"ProcNVMEAnyTag", "NVMEAny", nullptr, ProcNVMEAnyTag, false},
    {"LocalHDDAnyTag", "LocalHDDAny", nullptr, LocalHDDAnyTag, false},
    {"HDDLunTag", "HDDSlot", nullptr, HDDLunTag, false},
    {"ISCSIAnyTag", "ISCSIAny", nullptr, ISCSIAnyTag, false},
    {"ProcLocalStorageAnyTag", "LocalStorageAny", nullptr, ProcLocalStorageAnyTag, false},
    {"PCHAnyTag", "OnboardHDDAny", nullptr, PCHAnyTag, false},
    {"LocalCDDTag", "LocalCDD", nullptr, LocalCDDTag, false},
    {"LocalFDDTag", "LocalFDD", nullptr, LocalFDDTag, false},
    {"IxmoVMediaCDDTag", "IXMOVMediaCDD", nullptr, IxmoVMediaCDDTag, false},
    {"IxmoVMediaHDDTag", "IXMOVMediaHDD", nullptr, IxmoVMediaHDDTag, false},
    {"IxmoVMediaFDDTag", "IXMOVMediaFDD", nullptr, IxmoVMediaFDDTag, false},
    {"KvmVMediaCDDTag", "KVMVMediaCDD", nullptr, KvmVMediaCDDTag, false},
    {"KvmVMediaHDDTag", "KVMVMediaHDD", nullptr, KvmVMediaHDDTag, false},
    {"KvmVMediaFDDTag", "KVMVMediaFDD", nullptr, KvmVMediaFDDTag, false},
    {"InternalUsbTag", "InternalUSB", nullptr, InternalUsbTag, false},
    {"ExternalUsbTag", "ExternalUSB", nullptr, ExternalUsbTag, false},
    {"SDStorageTag", "SDStorage", nullptr, SDStorageTag, false},
    {"EfiShellTag", "UefiShell", nullptr, EfiShellTag, false},
    {"PortNumTag", "PortNum", nullptr, PortNumTag, false},
    {"SlotIDTag", "SlotID", nullptr, SlotIDTag, false},
    {"LANTag", "LAN", nullptr, LANTag, false},
    {"SANTag", "SAN", nullptr, SANTag, false},
    {"LocalHDDTag", "LocalHDD", nullptr, LocalHDDTag, false},
    {"USBSubTypeTag", "USBSubType", nullptr, USBSubTypeTag, false},
    {"VMediaSubTypeTag", "VMSubType", nullptr, VMediaSubTypeTag, false},
    {"PciBusTag", "PciBus", nullptr, PciBusTag, false},
    {"SDLUNTag", "LunId", nullptr, SDLUNTag, false},
    {"PciDevTag", "PciDevice", nullptr, PciDevTag, false},
    {"PciFuncTag", "PciFunction", nullptr, PciFuncTag, false},
    {"PciVIDTag", "PciVid", nullptr, PciVIDTag, kAnnounces},
    {"PciDIDTag", "PciDid", nullptr, PciDIDTag, kAnnounces},
    {"ProcBootloaderPath", "BootLoaderPath", nullptr, ProcBootloaderPath, false},
    {"ProcBootloaderName", "BootLoaderName", nullptr, ProcBootloaderName, false},
    {"PciSSIDTag", "PciSubDid", nullptr, PciSSIDTag, kAnnounces},
    {"PciSVIDTag", "PciSubVid", nullptr, PciSVIDTag, kAnnounces},
    {"PciClassTag", "PciClassId", nullptr, PciClassTag, kAnnounces},
    {"SlotTag", "PhysicalAdaptorSlotNum", nullptr, SlotTag, false},
    {"PciSubClassTag", "PciSubClassId", nullptr, PciSubClassTag, kAnnounces},
    {"PathInSANity", "PriLdrPath", "SecLdrPath", PathInSANity, false},
    {"NameInSANity", "PriLdrName", "SecLdrName", NameInSANity, false},
};
static_assert(std::size(kTagProcessors) == 45);

bool Knows(const TAG_PROCESSOR_ROW& row, const char* tagName) {
  if (row.Announces) {
    AnnounceTag(tagName, row.Name);
  }
  return TextEqual(row.TagName, tagName) || (row.SecondTagName != nullptr && TextEqual(row.SecondTagName, tagName));
}

EFI_STATUS Process(TAG_CALL& call) {
  for (const TAG_PROCESSOR_ROW& row : kTagProcessors) {
    if (Knows(row, call.TagName)) {
      return row.Process(call);
    }
  }
  return EFI_UNSUPPORTED;
}

// What the target's report says of a tag: the dispatcher's prefix and the processor's message.
void ReportTag(POLICY_TARGET& target, const TAG_CALL& call, EFI_STATUS status) {
  if (!EFI_ERROR(status) && !call.Message) {
    return;
  }
  constexpr UINTN kPrefixSize = 64;   // with the NUL
  constexpr UINTN kMessageSize = 64;  // with the NUL
  char text[kPrefixSize + kMessageSize] = {};
  const std::span<char> prefix = std::span(text).first(kPrefixSize);
  ReportCategory category = ReportCategory::GeneralData;
  UINTN length = 0;
  if (status == EFI_UNSUPPORTED) {
    category = ReportCategory::TagName;
    length = FormatAscii(prefix, "Unsupported tag %s", call.TagName);
  } else if (EFI_ERROR(status)) {
    category = ReportCategory::TagError;
    length = FormatAscii(prefix, "%s Error %r: ", call.TagName, status);
  }
  if (call.Message) {
    FormatAscii(std::span(text).subspan(length), "%s", call.Message.get());
  }
  AddReportEntry(target, category, text);
}

}  // namespace

std::span<const TAG_PROCESSOR_ROW> TagProcessors() { return kTagProcessors; }

void DispatchTag(POLICY_TARGET& target, const POLICY_TAG& tag, OPTION_WRAPPER_LIST& wrappers, UINT32 targetBase) {
  UINTN matches = 0;
  TAG_CALL call{.TagName = tag.Name,
                .TagValue = tag.Value,
                .Wrappers = wrappers,
                .TargetBase = targetBase,
                .MatchCount = matches};
  ObservePolicy({.Moment = PolicyMoment::TagBegins, .Tag = &tag});
  const EFI_STATUS status = Process(call);
  ReportTag(target, call, status);
  ObservePolicy({.Moment = PolicyMoment::TagEnds, .Tag = &tag, .Status = status, .Text = call.Message.get()});
}

bool ChecktoGoAhead(const BOOT_OPTION& option) {
  constexpr UINT8 kStandalone = 0;
  if (gPolicyEngine.ManagementMode == kStandalone) {
    if ((option.Attributes & LOAD_OPTION_ACTIVE) == 0) {
      DebugPrint("The Boot option is disabled \n");
      return false;
    }
    if (IsBuiltInApplicationOption(option)) {
      return true;
    }
  }
  switch (gPolicyEngine.BootMode) {
    case kBootModeLegacy:
      return IsLegacyOption(option);
    case kBootModeUefi:
      return !IsLegacyOption(option);
    default:
      return false;
  }
}

}  // namespace bds
