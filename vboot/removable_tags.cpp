// Tags on what hangs on the USB ports, on the built-in application, and on legacy device types.
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/bbs_kind.h"
#include "vboot/option_path.h"
#include "vboot/port_path.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

constexpr const CHAR16* kExternalPorts[] = {
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x0,0x0)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x1,0x0)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x3,0x0)/USB(0x2,0x0)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x3,0x0)/USB(0x1,0x0)",
    u"PciRoot(0x0)/Pci(0x14,0x0)/USB(0x10,0x0)",
};
constexpr CHAR16 kInternalPort[] = u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x2,0x0)";

// The instance's last node is a CD-ROM media node.
bool EndsInCdrom(Bytes instance) {
  const DevicePath* last = nullptr;
  for (DevicePathWalker walker(instance); walker.Node() != nullptr && !IsEnd(walker.Node()); walker.Next()) {
    last = walker.Node();
  }
  return IsNode(last, MEDIA_DEVICE_PATH, MEDIA_CDROM_DP);
}

bool IsOptical(const BOOT_OPTION& option) {
  if (IsLegacyOption(option)) {
    return option.BbsEntry != nullptr && option.BbsEntry->DeviceType == BBS_TYPE_CDROM;
  }
  for (OptionPathInstances at(option); at.Node() != nullptr; at.Next()) {
    if (EndsInCdrom(at.Rest())) {
      return true;
    }
  }
  return false;
}

// Marks what hangs on the external ports and refuses all options that no target has yet.
void KeepExternalPorts(TAG_CALL& call) {
  for (const CHAR16* port : kExternalPorts) {
    static_cast<void>(SelectOptionsUnderPath(port, call));
  }
  call.Found = {};
  for (VBOOT_OPTION_WRAPPER* wrapper = call.Wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    if (wrapper->Option->Tag == kUnassigned) {
      MarkOption(call, *wrapper, RefuseBecause(call, "on no external USB port"));
    }
  }
}

bool IsUnderAny(std::span<const CHAR16* const> ports, const VBOOT_OPTION_WRAPPER& wrapper) {
  for (const CHAR16* port : ports) {
    if (OptionIsUnder(PortPath(port), wrapper)) {
      return true;
    }
  }
  return false;
}

constexpr UINT32 kNoUsbKind = 0xFFFF;

// BBS type numbers serve as kinds: 2 hard disk, 3 CD/DVD.
UINT32 UsbKind(const BOOT_OPTION& option) {
  bool onUsb = false;
  for (DevicePathWalker walker(OptionPathInstances(option).Rest()); walker.Node() != nullptr && !IsEnd(walker.Node());
       walker.Next()) {
    const DevicePath* node = walker.Node();
    onUsb = onUsb || IsNode(node, MESSAGING_DEVICE_PATH, MSG_USB_DP);
    if (onUsb && IsNode(node, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP)) {
      return BBS_TYPE_HARDDRIVE;
    }
    if (onUsb && IsNode(node, MEDIA_DEVICE_PATH, MEDIA_CDROM_DP)) {
      return BBS_TYPE_CDROM;
    }
  }
  return kNoUsbKind;
}

bool IsUsbOfKind(const BOOT_OPTION& option, UINT32 wanted) {
  constexpr UINT32 kAny = 0;
  if (!IsLegacyOption(option)) {
    const UINT32 kind = UsbKind(option);
    DebugPrint("USB device type %x \n", kind);
    return kind == wanted || (wanted == kAny && kind != kNoUsbKind);
  }
  const BBS_TABLE* entry = option.BbsEntry;
  return entry != nullptr && (wanted == kAny || entry->DeviceType == wanted) && IsUsbEntry(*entry);
}

struct BBS_TYPE_NAME {
  const char* Name;
  UINT16 Type;
};
constexpr BBS_TYPE_NAME kBbsTypes[] = {
    {"BBSFloppy", BBS_TYPE_FLOPPY}, {"BBSHardDrive", BBS_TYPE_HARDDRIVE},
    {"BBSCDRom", BBS_TYPE_CDROM},   {"BBSNetwork", BBS_TYPE_EMBEDDED_NETWORK},
    {"BBSBEV", BBS_TYPE_BEV},
};

UINT16 BbsTypeOf(const char* name) {
  constexpr UINT16 kNoType = 255;
  for (const BBS_TYPE_NAME& row : kBbsTypes) {
    if (TextEqual(row.Name, name)) {
      return row.Type;
    }
  }
  return kNoType;
}

// Legacy options of the type are selected, other legacy options refused.
TagVerdict JudgeLegacyType(TAG_CALL& call, const BOOT_OPTION& option, UINT16 type) {
  if (!IsLegacyOption(option) || option.BbsEntry == nullptr) {
    return TagVerdict::Keep;
  }
  return CompareFound(call, option.BbsEntry->DeviceType, type);
}

}  // namespace

EFI_STATUS ExternalUsbTag(TAG_CALL& call) {
  KeepExternalPorts(call);
  WalkOptions(call, {}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    return IsOptical(*wrapper.Option) ? RefuseBecause(call, "a CD or DVD drive") : TagVerdict::Keep;
  });
  return EFI_SUCCESS;
}

EFI_STATUS LocalCDDTag(TAG_CALL& call) {
  KeepExternalPorts(call);
  WalkOptions(call, {}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    return IsOptical(*wrapper.Option) ? TagVerdict::Select : RefuseBecause(call, "no CD or DVD drive");
  });
  return EFI_SUCCESS;
}

EFI_STATUS InternalUsbTag(TAG_CALL& call) { return SelectFirstOptionAtPath(kInternalPort, call); }

EFI_STATUS SDStorageTag(TAG_CALL& call) {
  WalkOptions(call, {}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    if (!IsUnderAny(kSdPorts, wrapper)) {
      return TagVerdict::Keep;
    }
    DebugPrint("Found SD card partition\n");
    return TagVerdict::Select;
  });
  SayWhenNothingMatched(call, "SDStorage");
  return EFI_SUCCESS;
}

EFI_STATUS USBSubTypeTag(TAG_CALL& call) {
  UINT32 kind = 0;
  if (const EFI_STATUS status = ReadTagValue(call, kind); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("USB SubType %x \n", kind);
  WalkOptions(call, {}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    if (!IsUsbOfKind(*wrapper.Option, kind)) {
      return TagVerdict::Keep;
    }
    if (IsUnderAny(kVirtualMediaAndSdPorts, wrapper)) {
      DebugPrint("Eliminating Virtual Media and SD card\n");
      return RefuseBecause(call, "virtual media or the SD card");
    }
    return TagVerdict::Select;
  });
  SayWhenNothingMatched(call, "USBSubType");
  return EFI_SUCCESS;
}

EFI_STATUS EfiShellTag(TAG_CALL& call) {
  bool selected = false;
  WalkOptions(call, {.Eligible = false}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    selected = IsBuiltInApplicationOption(*wrapper.Option);
    return selected ? TagVerdict::SelectAndStop : TagVerdict::Keep;
  });
  return selected ? EFI_SUCCESS : EFI_NOT_FOUND;
}

EFI_STATUS LocalFDDTag(TAG_CALL& call) {
  DebugPrint("I'm a Rack server!\n");
  static_cast<void>(VMediaFDDTag(call));
  WalkOptions(call, {}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    return JudgeLegacyType(call, *wrapper.Option, BBS_TYPE_FLOPPY);
  });
  return EFI_SUCCESS;
}

EFI_STATUS BbsTypeTag(TAG_CALL& call) {
  const UINT16 type = BbsTypeOf(call.TagValue);
  WalkOptions(call, {},
              [&](const VBOOT_OPTION_WRAPPER& wrapper) { return JudgeLegacyType(call, *wrapper.Option, type); });
  return EFI_SUCCESS;
}

}  // namespace bds
