// The tag on a unit of the SD card: an option at exactly that unit, or a partition on it.
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/bbs_kind.h"
#include "vboot/option_path.h"
#include "vboot/port_path.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

// The platform's name for its SD device; a platform without one calls it "UNDEFINED".
constexpr CHAR16 kSdDeviceName[] = u"SD card";

constexpr UINT32 kFirstUnit = 2;  // values 0 and 1 are the port itself
constexpr UINT32 kLastUnit = 5;

constexpr const CHAR16* kUnitPaths[] = {
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)/Unit(0x1)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)/Unit(0x2)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)/Unit(0x3)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)/Unit(0x4)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)/Unit(0xFF)",
};

const CHAR16* UnitPath(UINT32 unit) {
  if (unit < kFirstUnit) {
    return kUnitPaths[0];
  }
  return kUnitPaths[unit <= kLastUnit ? unit - 1 : std::size(kUnitPaths) - 1];
}

// One instance that is the unit is enough; an option whose instances are all elsewhere is refused.
TagVerdict JudgeByOwnPath(const VBOOT_OPTION_WRAPPER& wrapper, const PortPath& unit) {
  TagVerdict verdict = TagVerdict::Keep;
  for (OptionPathInstances at(*wrapper.Option); const DevicePath* node = at.Node(); at.Next()) {
    const bool onDisk = IsHardDriveNode(node);
    if (!onDisk && !IsAcpiNode(node)) {
      continue;
    }
    if (unit.Is(onDisk ? wrapper.DiskDevicePath.get() : node)) {
      if (onDisk) {
        DebugPrint("TargetDevPath and base device path matches \n");
      }
      return TagVerdict::Select;
    }
    verdict = TagVerdict::Refuse;
  }
  return verdict;
}

TagVerdict JudgeByHandle(const VBOOT_OPTION_WRAPPER& wrapper, const PortPath& unit) {
  const BOOT_OPTION& option = *wrapper.Option;
  const DevicePath* path = wrapper.HandlePath;
  if (!IsAcpiNode(path)) {
    return TagVerdict::Keep;
  }
  if (unit.Is(path)) {
    DebugPrint("Handle:TargetDevPath and CurrentPath matches \n");
    return TagVerdict::Select;
  }
  if (IsLegacyOption(option)) {
    DebugPrint("%S is NOT a match\n", option.Description.get());
    return TagVerdict::Refuse;
  }
  DebugPrint("mismatched device is UEFI\n");
  if (!unit.Begins(path)) {
    return TagVerdict::Refuse;
  }
  DebugPrint("Device is a partial match\n");
  return SelectOrKeep(unit.NodeBehind(path)->Type == MEDIA_DEVICE_PATH);
}

bool IsOtherLegacyDevice(const BOOT_OPTION& option) {
  return IsLegacyOption(option) && option.BbsEntry != nullptr && !IsUsbEntry(*option.BbsEntry);
}

}  // namespace

EFI_STATUS SDLUNTag(TAG_CALL& call) {
  UINT32 lun = 0;
  if (const EFI_STATUS status = ReadTagValue(call, lun); EFI_ERROR(status)) {
    return status;
  }
  if (TextEqual(kSdDeviceName, kUndefinedPort)) {
    SetTagMessage(call, "SD card not supported by vBoot.");
    return EFI_NOT_FOUND;
  }
  DebugPrint("Trying to match SD LUN ID Num 0x%x...\n", lun);
  const PortPath unit(UnitPath(lun));
  WalkOptions(call, {"SDLUNTag", true, nullptr, "Already has a priority\n"}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    const BOOT_OPTION& option = *wrapper.Option;
    if (IsOtherLegacyDevice(option)) {
      return TagVerdict::Keep;
    }
    call.Found.Why = "by its unit of the SD card";
    return option.DeviceHandle == nullptr ? JudgeByOwnPath(wrapper, unit) : JudgeByHandle(wrapper, unit);
  });
  SayWhenNothingMatched(call, "LunId");
  return EFI_SUCCESS;
}

}  // namespace bds
