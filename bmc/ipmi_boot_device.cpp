// Candidates for a boot request, the choice among them, and what it does to the order.
#include "bmc/ipmi_boot_device.h"

#include "bmc/matched_option.h"
#include "bmc/saved_boot_order.h"
#include "bmc/state.h"
#include "bootopt/boot_lists.h"
#include "bootopt/dumps/dumps.h"
#include "support/debug_print.h"
#include "support/device_path.h"

namespace bds {
namespace {

constexpr UINT8 kInstanceGiven = 0x10;
constexpr UINT8 kInstanceMask = 0x0F;
constexpr UINT8 kUsbClass = 0x0C;
constexpr UINT8 kUsbSubClass = 0x03;
constexpr UINT32 kFloppyHid = 0x060441D0;  // PNP0604
constexpr UINT32 kRequestTag = 1;
constexpr UINT32 kPriorityStep = 256;

struct Wanted {
  UINT16 BbsType;
  UINT16 NodeType;
  UINT16 NodeSubType;
  bool Is(UINT8 type, UINT8 subType) const { return NodeType == type && NodeSubType == subType; }
};

enum class Candidate : UINT8 { No, Plain, Usb };

Candidate LegacyCandidate(const BOOT_OPTION& option, const Wanted& wanted) {
  UINT16 type = 0;
  if (!IsNode(option.FilePathList.get(), BBS_DEVICE_PATH, BBS_BBS_DP) || !FirstNodeDeviceType(option, type) ||
      type != wanted.BbsType) {
    return Candidate::No;
  }
  const BBS_TABLE* entry = option.BbsEntry;
  const bool usb = entry != nullptr && entry->Class == kUsbClass && entry->SubClass == kUsbSubClass;
  return usb ? Candidate::Usb : Candidate::Plain;
}

bool IsFloppyPath(const DevicePath* first) {
  if (!IsNode(first, ACPI_DEVICE_PATH, ACPI_DP) || NodeLength(first) < sizeof(ACPI_HID_DEVICE_PATH)) {
    return false;
  }
  return LoadUnaligned<ACPI_HID_DEVICE_PATH>(first).HID == kFloppyHid;
}

bool IsUsbNode(const DevicePath* node) { return IsNode(node, MESSAGING_DEVICE_PATH, MSG_USB_DP); }

Candidate UefiCandidate(const BOOT_OPTION& option, const Wanted& wanted) {
  if (option.BbsEntry != nullptr || option.BbsIndex != kNoBbsIndex || !option.FilePathList) {
    return Candidate::No;
  }
  const DevicePath* path = option.FilePathList.get();
  const DevicePath* last = LastNode(path);
  const DevicePath* beforeLast = NextToLastNode(path);
  if (wanted.Is(ACPI_DEVICE_PATH, ACPI_DP)) {
    if (IsFloppyPath(path)) {
      return Candidate::Plain;
    }
    return IsUsbNode(last) ? Candidate::Usb : Candidate::No;
  }
  if (wanted.Is(MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP)) {
    const bool network = IsNode(beforeLast, MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP);
    return network ? Candidate::Plain : Candidate::No;
  }
  if (last != nullptr && wanted.Is(last->Type, last->SubType)) {
    return IsUsbNode(beforeLast) ? Candidate::Usb : Candidate::Plain;
  }
  const bool loaderOnDisk = wanted.Is(MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP) &&
                            IsNode(last, MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP) &&
                            IsNode(beforeLast, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
  return loaderOnDisk ? Candidate::Plain : Candidate::No;
}

Candidate Examine(const BOOT_OPTION& option, const Wanted& wanted) {
  if (option.GroupHeader) {
    return Candidate::No;
  }
  return gBmc.IpmiEfiBoot ? UefiCandidate(option, wanted) : LegacyCandidate(option, wanted);
}

// The candidate with this number, counted in list order from 0; null when there are fewer. number becomes what is
// left to count among the candidates of another kind.
BOOT_OPTION* NthCandidate(const Wanted& wanted, Candidate kind, UINTN& number) {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (Examine(*option, wanted) != kind) {
      continue;
    }
    if (number == 0) {
      return option;
    }
    --number;
  }
  return nullptr;
}

// Numbers the candidates from 0, those on USB behind all others.
BOOT_OPTION* CandidateNumber(const Wanted& wanted, UINTN number) {
  BOOT_OPTION* option = NthCandidate(wanted, Candidate::Plain, number);
  return option != nullptr ? option : NthCandidate(wanted, Candidate::Usb, number);
}

BOOT_OPTION* SelectCandidate(const Wanted& wanted) {
  BOOT_OPTION* selected = nullptr;
  if ((gBmc.IpmiDeviceInstance & kInstanceGiven) != 0) {
    selected = CandidateNumber(wanted, gBmc.IpmiDeviceInstance & kInstanceMask);
  }
  return selected != nullptr ? selected : CandidateNumber(wanted, 0);
}

// The legacy devices of the selected option's type move to the front in list order, all others behind them.
void OrderLegacyType(const BOOT_OPTION& selected, UINT16 bbsType) {
  const UINT16 type = selected.BbsEntry != nullptr ? selected.BbsEntry->DeviceType : bbsType;
  UINT32 front = 0;
  UINT32 behind = kPriorityStep;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    const bool sameType =
        IsLegacyOption(*option) && option->BbsEntry != nullptr && option->BbsEntry->DeviceType == type;
    if (sameType || option == &selected) {
      option->Tag = kRequestTag;
      option->Priority = front++;
      continue;
    }
    option->Priority = behind;
    behind += kPriorityStep;
  }
}

}  // namespace

EFI_STATUS ApplyIpmiBootDevice(UINT16 BbsType, UINT16 NodeType, UINT16 NodeSubType) {
  DumpBootOptionList(BootOptionList, "Before Setting IPMI Priorities");
  const Wanted wanted{BbsType, NodeType, NodeSubType};
  BOOT_OPTION* selected = SelectCandidate(wanted);
  if (selected == nullptr) {
    return EFI_NOT_FOUND;
  }
  if (!gBmc.IpmiEfiBoot) {
    SaveMatchedBootOption(*selected);
  }
  // This also sorts the list on a standalone server: OrderLegacyType walks it in that order.
  if (!SaveCurrentBootorder()) {
    DebugPrint("%a:The boot order cannot be kept for the next boot, the request is not followed\n",
               "ApplyIpmiBootDevice");
    return EFI_ABORTED;
  }
  selected->Priority = 0;
  selected->Tag = kRequestTag;
  if (selected->BbsEntry != nullptr) {
    DebugPrint("IPMI boot of device type %x \n", UINT16{selected->BbsEntry->DeviceType});
  }
  if (!gBmc.IpmiEfiBoot) {
    OrderLegacyType(*selected, BbsType);
  }
  DumpBootOptionList(BootOptionList, "After Setting IPMI Priorities");
  return EFI_SUCCESS;
}

}  // namespace bds
