// Tags on disks at the board's own SATA ports, and on the chipset's software RAID when there are none.
//
// UEFI options are known by the text of their disk's path, in which the two controllers appear as below and each disk
// as a Sata node; legacy options by their BBS description, which begins with the port.
#include "bootopt/bbs_table.h"
#include "flexboot/slot_ports.h"
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/bbs_kind.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

constexpr char kHddLunTag[] = "HDDLunTag";
constexpr char kFirstController[] = "Pci(0x1F,0x2)";
constexpr char kSecondController[] = "Pci(0x11,0x4)";
constexpr UINTN kPatternSize = 40;
constexpr UINTN kDescriptionLength = 49;

bool IsOnBoard(const char* path) {
  return ContainsText(path, kFirstController) || ContainsText(path, kSecondController);
}

// What the option stands for, as these tags see it.
enum class DiskKind : UINT8 { UefiWithPath, UefiWithoutPath, Legacy };
DiskKind KindOf(const VBOOT_OPTION_WRAPPER& wrapper) {
  if (IsLegacyOption(*wrapper.Option) && wrapper.Option->BbsEntry != nullptr) {
    return DiskKind::Legacy;
  }
  return wrapper.DiskPathText ? DiskKind::UefiWithPath : DiskKind::UefiWithoutPath;
}

TagVerdict SayAndJudge(bool matches, const char* found, const char* notFound, TagVerdict otherwise) {
  DebugPrintText(matches ? found : notFound);
  return matches ? TagVerdict::Select : otherwise;
}
TagVerdict JudgeSataPort(bool matches) {
  return SayAndJudge(matches, "Found SATA Port match \n", "SATA Port match Not found\n", TagVerdict::Keep);
}

// True when an entry of the chipset's storage controller in the slot and port table satisfies the test.
template <typename Test>
bool AnyStoragePort(Test&& test) {
  for (const SLOT_PORT_ENTRY& entry : SlotPortTable()) {
    if (entry.Slot == kSlotChipsetStorage && test(entry)) {
      return true;
    }
  }
  return false;
}

TagVerdict JudgeLegacyRaid(bool matches) {
  if (matches) {
    DebugPrint("Found onboard SWRAID type match \n");
  }
  return SelectOrRefuse(matches);
}

EFI_STATUS SWRAIDTag(TAG_CALL& call) {
  DebugPrint("Trying to match SWRAID \n");
  WalkOptions(call, {"SWRAIDTag"}, [](const VBOOT_OPTION_WRAPPER& wrapper) {
    const char* path = wrapper.DiskPathText.get();
    switch (KindOf(wrapper)) {
      case DiskKind::UefiWithPath:
        DebugPrint("\n SWRAID-Any Port match Full Path : %a \n", path);
        return SayAndJudge(IsOnBoard(path), "UEFI SWRAID-Any Port match \n", "UEFI SWRAID-Any Port match NOT found\n",
                           TagVerdict::Keep);
      case DiskKind::UefiWithoutPath:
        return TagVerdict::Keep;
      case DiskKind::Legacy:
        break;
    }
    const BBS_TABLE& bbs = *wrapper.Option->BbsEntry;
    return JudgeLegacyRaid(AnyStoragePort([&](const SLOT_PORT_ENTRY& entry) {
      return entry.Location == PCI_LOCATION{bbs.Bus, bbs.Device, bbs.Function};
    }));
  });
  SayWhenNothingMatched(call, "SWRAID");
  return EFI_SUCCESS;
}

TagVerdict JudgeAnyLegacyDisk(const BOOT_OPTION& option) {
  if (IsSataEntry(*option.BbsEntry)) {
    DebugPrint("Found SATA device match \n");
    return TagVerdict::Select;
  }
  const CHAR16* name = option.Description.get();
  if (!ContainsText(name, u"HDD Slot") && !ContainsText(name, u"PCH SATA")) {
    return TagVerdict::Keep;
  }
  DebugPrint("Found RSTE type match \n");
  return TagVerdict::Select;
}

// The Sata nodes that a slot number stands for: slots 1 to 4 are ports of the first controller (1 and 2 are also its
// fifth and sixth port), all others of the second.
bool IsSataPortOf(const char* path, UINT32 slot) {
  char pattern[kPatternSize];
  if (slot < 1 || slot > 4) {
    FormatAscii(pattern, "Pci(0x11,0x4)/Sata(0x%x", slot - 5);
    return ContainsText(path, pattern);
  }
  FormatAscii(pattern, "Pci(0x1F,0x2)/Sata(0x%x", slot - 1);
  if (ContainsText(path, pattern)) {
    return true;
  }
  FormatAscii(pattern, "Pci(0x1F,0x2)/Sata(0x%x", slot + 3);
  return slot <= 2 && ContainsText(path, pattern);
}

bool IsDescribedAsSlot(const BBS_TABLE& entry, UINT32 slot) {
  const std::span<const char> described = BbsDescription(entry);
  BbsText text =
      CopyBbsText(described.first(described.size() < kDescriptionLength ? described.size() : kDescriptionLength));
  char pattern[kPatternSize];
  FormatAscii(pattern, "HDD Slot %x:", slot);
  if (ContainsText(text.Text, pattern)) {
    return true;
  }
  FormatAscii(pattern, "PCH SATA %x:", slot);
  return ContainsText(text.Text, pattern);
}

void SelectSataSlot(TAG_CALL& call, UINT32 slot) {
  WalkOptions(call, {kHddLunTag}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    const char* path = wrapper.DiskPathText.get();
    switch (KindOf(wrapper)) {
      case DiskKind::UefiWithPath:
        DebugPrint("\n TagAsInt: %d  SATA Port match Full Path : %a \n", slot, path);
        return JudgeSataPort(IsSataPortOf(path, slot));
      case DiskKind::UefiWithoutPath:
        return TagVerdict::Keep;
      case DiskKind::Legacy:
        break;
    }
    const BBS_TABLE& entry = *wrapper.Option->BbsEntry;
    return IsSataEntry(entry) ? JudgeSataPort(IsDescribedAsSlot(entry, slot)) : TagVerdict::Keep;
  });
}

// The function of the chipset's RAID behind a slot number; the others have none and select nothing.
bool IsRaidFunctionOf(const BBS_TABLE& entry, UINT32 slot) {
  if (slot == 1) {
    return entry.Device == 0x1F && entry.Function == 2;
  }
  return slot == 0 && entry.Device == 0x11 && entry.Function == 4;
}

TagVerdict JudgeUefiRaid(const char* path, UINT32 slot) {
  DebugPrint("\n SWRAID Port match Full Path : %a \n", path);
  if (!ContainsText(path, "Scsi")) {
    return TagVerdict::Keep;
  }
  DebugPrint("UEFI SWRAID  device \n");
  return SayAndJudge(ContainsText(path, slot == 1 ? kFirstController : kSecondController), "UEFI SWRAID Port match \n",
                     "UEFI SWRAID Port match NOT found\n", TagVerdict::Keep);
}

void SelectRaidSlot(TAG_CALL& call, UINT32 slot) {
  WalkOptions(call, {kHddLunTag}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    const char* path = wrapper.DiskPathText.get();
    switch (KindOf(wrapper)) {
      case DiskKind::UefiWithPath:
        return JudgeUefiRaid(path, slot);
      case DiskKind::UefiWithoutPath:
        return TagVerdict::Keep;
      case DiskKind::Legacy:
        break;
    }
    const BBS_TABLE& bbs = *wrapper.Option->BbsEntry;
    return JudgeLegacyRaid(IsRaidFunctionOf(bbs, slot) &&
                           AnyStoragePort([&](const SLOT_PORT_ENTRY& entry) { return entry.Location.Bus == bbs.Bus; }));
  });
}

}  // namespace

EFI_STATUS PCHAnyTag(TAG_CALL& call) {
  DebugPrint("PCH any tag \n");
  UINT32 value = 0;
  if (const EFI_STATUS status = ReadTagValue(call, value); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("Trying to match onboard hdd any 0x%x...", value);
  WalkOptions(call, {"PCHAnyTag"}, [](const VBOOT_OPTION_WRAPPER& wrapper) {
    const char* path = wrapper.DiskPathText.get();
    switch (KindOf(wrapper)) {
      case DiskKind::UefiWithPath:
        DebugPrint("\n SATA-any Port match Full Path : %a \n", path);
        return JudgeSataPort(IsOnBoard(path));
      case DiskKind::UefiWithoutPath:
        return TagVerdict::Keep;
      case DiskKind::Legacy:
        break;
    }
    return JudgeAnyLegacyDisk(*wrapper.Option);
  });
  if (call.MatchCount == 0) {
    DebugPrint("No RSTE options Found. Look for SWRAID \n");
    static_cast<void>(SWRAIDTag(call));
  }
  call.Message.reset();
  SayWhenNothingMatched(call, "OnboardHDDAny");
  return EFI_SUCCESS;
}

EFI_STATUS HDDLunTag(TAG_CALL& call) {
  UINT32 slot = 0;
  if (const EFI_STATUS status = ReadTagValue(call, slot); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("Trying to match LUN Num 0x%x...", slot);
  SelectSataSlot(call, slot);
  if (call.MatchCount != 0) {
    return EFI_SUCCESS;
  }
  DebugPrint("No SATA options Found. Look for SWRAID \n");
  DebugPrint("Trying to match SWRAID LUN %x \n", slot);
  SelectRaidSlot(call, slot);
  SayWhenNothingMatched(call, "HDDSlot");
  return EFI_SUCCESS;
}

}  // namespace bds
