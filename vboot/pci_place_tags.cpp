// Tags on where an option's PCI function sits: bus, device, function.
#include "platform/pci_config.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "vboot/option_path.h"
#include "vboot/option_pci.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

constexpr char kPciFuncTag[] = "PciFuncTag";
constexpr char kNoPciDevice[] = "its path names no PCI device";
constexpr char kNoBridge[] = "no bridge above its device";

// The path of the option's PCI function: that of the handle found before, or the PCI part of its own path. known is
// false when there is none; a handle that lost its path gives null.
PoolPtr<DevicePath> FunctionPath(VBOOT_OPTION_WRAPPER& wrapper, bool& known) {
  known = true;
  if (wrapper.PciHandle != nullptr) {
    return CopyDevicePath(DevicePathOf(wrapper.PciHandle));
  }
  PoolPtr<DevicePath> path = TrimToPciNode(FindPciPathStart(*wrapper.Option, wrapper.DiskDevicePath.get()));
  known = path && LocatePciIo(path.get(), wrapper) != nullptr;
  return path;
}

// The PCI I/O of the controller above the path's last node; null when there is none.
EFI_PCI_IO_PROTOCOL* ParentPciIo(DevicePath* path) {
  const DevicePath* last = LastNode(path);
  if (last == nullptr) {
    return nullptr;
  }
  StoreUnaligned(const_cast<DevicePath*>(last), kEndEntireNode);
  DevicePath* remaining = path;
  EFI_HANDLE parent = nullptr;
  if (EFI_ERROR(BootServices()->LocateDevicePath(&ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &remaining, &parent))) {
    return nullptr;
  }
  return HandleProtocol<EFI_PCI_IO_PROTOCOL>(parent);
}

TagVerdict CompareParentBus(TAG_CALL& call, EFI_PCI_IO_PROTOCOL& parent, UINT32 wanted) {
  UINT8 headerType = 0;
  UINT8 secondary = 0;
  if (EFI_ERROR(parent.Pci.Read(&parent, EfiPciIoWidthUint8, PCI_HEADER_TYPE_OFFSET, 1, &headerType))) {
    return TagVerdict::Refuse;
  }
  if ((headerType & HEADER_LAYOUT_CODE) != HEADER_TYPE_PCI_TO_PCI_BRIDGE) {
    return TagVerdict::Keep;
  }
  if (EFI_ERROR(
          parent.Pci.Read(&parent, EfiPciIoWidthUint8, PCI_BRIDGE_SECONDARY_BUS_REGISTER_OFFSET, 1, &secondary))) {
    return TagVerdict::Refuse;
  }
  return CompareFound(call, secondary, wanted);
}

TagVerdict CompareBus(TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted) {
  if (!wrapper.ParentKnown) {
    const PoolPtr<DevicePath> path = FunctionPath(wrapper, wrapper.ParentKnown);
    if (!wrapper.ParentKnown) {
      return TagVerdict::Keep;
    }
    wrapper.ParentPciIo = ParentPciIo(path.get());
  }
  return wrapper.ParentPciIo != nullptr ? CompareParentBus(call, *wrapper.ParentPciIo, wanted)
                                        : RefuseBecause(call, kNoBridge);
}

// The path in which device and function numbers are looked for; null when the option has none that tells them.
const DevicePath* PathWithPlace(const VBOOT_OPTION_WRAPPER& wrapper) {
  constexpr UINT8 kSubTypeOfRoots = 1;
  const BOOT_OPTION& option = *wrapper.Option;
  const DevicePath* path = option.DeviceHandle != nullptr ? wrapper.HandlePath : option.FilePathList.get();
  const DevicePath* first = OptionPathInstances(option).Node();
  if (path == nullptr) {
    return nullptr;
  }
  if (IsHardDriveNode(path)) {
    return wrapper.DiskDevicePath.get();
  }
  return path->Type == ACPI_DEVICE_PATH || (first != nullptr && first->SubType == kSubTypeOfRoots) ? path : nullptr;
}

TagVerdict CompareFunction(TAG_CALL& call, const VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted) {
  const DevicePath* path = PathWithPlace(wrapper);
  if (path == nullptr) {
    return RefuseBecause(call, kNoPciDevice);
  }
  if (const DevicePath* node = FindLastPciNode(path)) {
    DebugPrint("%a checking DP for data.\n", kPciFuncTag);
    return CompareFound(call, LoadUnaligned<PCI_DEVICE_PATH>(node).Function, wanted);
  }
  DebugPrint("%a Falling back to BBS table data\n", kPciFuncTag);
  const BOOT_OPTION& option = *wrapper.Option;
  if (!IsLegacyOption(option) || option.BbsEntry == nullptr) {
    return RefuseBecause(call, kNoPciDevice);
  }
  return CompareFound(call, option.BbsEntry->Function, wanted);
}

TagVerdict CompareDevice(TAG_CALL& call, const VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted) {
  const BOOT_OPTION& option = *wrapper.Option;
  if (IsLegacyOption(option) && option.BbsEntry != nullptr) {
    return CompareFound(call, option.BbsEntry->Device, wanted);
  }
  const DevicePath* node = FindLastPciNode(PathWithPlace(wrapper));
  return node != nullptr ? CompareFound(call, LoadUnaligned<PCI_DEVICE_PATH>(node).Device, wanted)
                         : RefuseBecause(call, kNoPciDevice);
}

using PlaceTest = TagVerdict (*)(TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted);

struct PCI_PLACE_TAG {
  const char* TagName;
  UINT32 Max;
  PlaceTest Test;
};

EFI_STATUS MatchPlace(TAG_CALL& call, const PCI_PLACE_TAG& tag) {
  UINT32 value = 0;
  if (const EFI_STATUS status = ReadTagValue(call, value, tag.Max, RangeText::Plain); EFI_ERROR(status)) {
    return status;
  }
  WalkOptions(call, {}, [&](VBOOT_OPTION_WRAPPER& wrapper) { return tag.Test(call, wrapper, value); });
  SayWhenNothingMatched(call, tag.TagName);
  return EFI_SUCCESS;
}

constexpr PCI_PLACE_TAG kBus{"PciBus", 255, [](TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted) {
                               const BOOT_OPTION& option = *wrapper.Option;
                               return IsLegacyOption(option) && option.BbsEntry != nullptr
                                          ? CompareFound(call, option.BbsEntry->Bus, wanted)
                                          : CompareBus(call, wrapper, wanted);
                             }};
constexpr PCI_PLACE_TAG kDevice{"PciDevice", 31, [](TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted) {
                                  return CompareDevice(call, wrapper, wanted);
                                }};
constexpr PCI_PLACE_TAG kFunction{"PciFunction", 8, [](TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, UINT32 wanted) {
                                    return CompareFunction(call, wrapper, wanted);
                                  }};

}  // namespace

EFI_STATUS PciBusTag(TAG_CALL& call) { return MatchPlace(call, kBus); }
EFI_STATUS PciDevTag(TAG_CALL& call) { return MatchPlace(call, kDevice); }
EFI_STATUS PciFuncTag(TAG_CALL& call) { return MatchPlace(call, kFunction); }

}  // namespace bds
