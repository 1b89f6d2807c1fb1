// Placeholders: in strict group order each legacy group that the BMC names has an option, be there a device or not. A
// placeholder's BBS entry lives for one boot, and its option is never active.
#include "bmc/group_priorities.h"
#include "bmc/steps.h"
#include "bootopt/bbs_table.h"
#include "bootopt/boot_lists.h"
#include "platform/legacy_bios_ext.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/setup.h"
#include "support/text.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

struct PlaceholderRow {
  UINT16 BbsType;
  UINT8 Class;
  UINT8 SubClass;
  UINT16 StatusFlags;
  char Name[32];
};
constexpr UINT16 kMediaMayBePresent = 1 << 10;
constexpr PlaceholderRow kPlaceholders[] = {
    {BBS_TYPE_FLOPPY, 0x0C, 0x00, 0, "*FDD (Place Holder)"},
    {BBS_TYPE_HARDDRIVE, 0x01, 0x03, kMediaMayBePresent, "*HDD (Place Holder)"},
    {BBS_TYPE_CDROM, 0x0C, 0x00, 0, "*CD/DVD (Place Holder)"},
    {BBS_TYPE_USB, 0x0C, 0x80, 0, "*USB (Place Holder)"},
    {BBS_TYPE_EMBEDDED_NETWORK, 0x02, 0x00, 0, "*NIC (Place Holder)"},
    {BBS_TYPE_BEV, 0x08, 0x00, 0, "*BEV Device (Place Holder)"},
};
constexpr CHAR16 kPlaceholderSuffix[] = u"(Place Holder)";

constexpr UINTN kRegionSize = 64;
constexpr UINTN kEitherSegment = 0;  // 0xE000 or 0xF000
constexpr UINTN kRegionAlignment = 2;
constexpr UINT8 kFirstFreeIndex = 0xFF;

// Null for the type of a group that has no legacy devices.
const PlaceholderRow* PlaceholderOf(UINT16 bbsType) {
  for (const PlaceholderRow& row : kPlaceholders) {
    if (row.BbsType == bbsType) {
      return &row;
    }
  }
  return nullptr;
}

// BootOrder names a group once for each of its options.
bool IsNamedBefore(const BMC_PRIORITY_LIST& list, UINT32 place) {
  UINT32 at = 0;
  while (list.Ids[at] != list.Ids[place]) {
    ++at;
  }
  return at != place;
}

// A device whose option ROM or CSM driver can boot it. What an empty entry still holds is no device.
bool HasBootableEntry(const BbsInfo& bbs, UINT16 bbsType) {
  for (UINT16 index = 0; index < bbs.BbsCount; ++index) {
    const BBS_TABLE& entry = bbs.Table[index];
    if (entry.BootPriority != kBbsEmpty && entry.DeviceType == bbsType &&
        (entry.BootHandlerOffset != 0 || entry.BootHandlerSegment != 0)) {
      return true;
    }
  }
  return false;
}

BBS_TABLE PlaceholderEntry(const PlaceholderRow& row, UINTN nameAddress) {
  BBS_TABLE entry{};
  entry.BootPriority = kBbsSetAside;
  entry.Class = row.Class;
  entry.SubClass = row.SubClass;
  entry.StatusFlags = row.StatusFlags;
  entry.DeviceType = row.BbsType;
  entry.DescStringOffset = entry.MfgStringOffset = static_cast<UINT16>(nameAddress & 0xFFFF);
  entry.DescStringSegment = entry.MfgStringSegment = static_cast<UINT16>((nameAddress >> 4) & 0xF000);
  return entry;
}

// False ends the step.
bool AddPlaceholder(LEGACY_BIOS_EXT_PROTOCOL& extension, EFI_LEGACY_BIOS_PROTOCOL& legacyBios,
                    const PlaceholderRow& row) {
  void* region = nullptr;
  const EFI_STATUS status =
      legacyBios.GetLegacyRegion(&legacyBios, kRegionSize, kEitherSegment, kRegionAlignment, &region);
  if (EFI_ERROR(status)) {
    DebugPrint("CheckForNoAssociateOption:Failed locating LegacyRegion:%0x\n", status);
    return false;
  }
  char name[sizeof(row.Name)];
  CopyMemory(name, row.Name, sizeof(name));
  if (EFI_ERROR(legacyBios.CopyLegacyRegion(&legacyBios, TextLength(name) + 1, region, name))) {
    return false;  // an entry without its name would never be taken for a placeholder
  }
  BBS_TABLE entry = PlaceholderEntry(row, reinterpret_cast<UINTN>(region));
  UINT8 index = kFirstFreeIndex;
  BbsInfo bbs;
  if (extension.InsertBbsEntry(&extension, &entry, &index) != EFI_SUCCESS || EFI_ERROR(GetBbsInfo(bbs))) {
    return false;
  }
  static_cast<void>(CreateBootDevice(BootDeviceList, nullptr, index, &bbs.Table[index]));
  return true;
}

void AddPlaceholders(LEGACY_BIOS_EXT_PROTOCOL& extension, EFI_LEGACY_BIOS_PROTOCOL& legacyBios) {
  BbsInfo bbs;
  BMC_PRIORITY_LIST list;
  if (EFI_ERROR(GetBbsInfo(bbs)) || EFI_ERROR(GetBootPrioritiesFromBmc(list))) {
    return;
  }
  for (UINT32 place = 0; place < kGroupOrderPlaces && list.Ids[place] != kNoGroup; ++place) {
    const UINT32 groupId = list.Ids[place];
    DebugPrint("CheckForNoAssociateOption: OptionIndex = %d , BmcPriorityList[OptionIndex] = %d, BoTagUefi = %d \n",
               place, groupId, kGroupUefi);
    const PlaceholderRow* row = PlaceholderOf(BbsTypeOfGroup(groupId));
    if (row == nullptr || IsNamedBefore(list, place) || HasBootableEntry(bbs, row->BbsType)) {
      continue;
    }
    DebugPrint("CheckForNoAssociateOption:No Device found for Tag:%d\n", groupId);
    if (!AddPlaceholder(extension, legacyBios, *row)) {
      return;
    }
  }
}

bool IsPlaceholder(const BOOT_OPTION& option) {
  constexpr UINTN kSuffixLength = sizeof(kPlaceholderSuffix) / sizeof(CHAR16) - 1;
  const UINTN length = TextLength(option.Description.get());
  return length >= kSuffixLength && EqualMemory(option.Description.get() + length - kSuffixLength, kPlaceholderSuffix,
                                                kSuffixLength * sizeof(CHAR16));
}

void Inactivate(BOOT_OPTION& option) {
  option.Attributes &= ~LOAD_OPTION_ACTIVE;
  if (option.BbsEntry != nullptr) {
    option.BbsEntry->BootPriority = kBbsSetAside;
  }
}

// An option that the firmware named as a UEFI one.
bool IsNamedUefi(const BOOT_OPTION& option) {
  constexpr CHAR16 kPrefix[] = {u'U', u'E', u'F', u'I', u':'};
  return TextLength(option.Description.get()) >= sizeof(kPrefix) / sizeof(CHAR16) &&
         EqualMemory(option.Description.get(), kPrefix, sizeof(kPrefix));
}

bool IsUefiModeOff() {
  SetupVariable setup;
  return !EFI_ERROR(ReadSetup(setup)) && setup.At(kSetupUefiMode) == 0;
}

}  // namespace

void CheckForNoAssociateOption() {
  if (!IsStrictGroupOrder()) {
    DebugPrint("CheckForNoAssociateOption:No Strict mode\n");
    return;
  }
  if (HaveVbootPolicy()) {
    DebugPrint("CheckForNoAssociateOption:FlexBoot enabled\n");
    return;
  }
  LEGACY_BIOS_EXT_PROTOCOL* extension = nullptr;
  if (const EFI_STATUS status = LocateProtocol(extension); EFI_ERROR(status)) {
    DebugPrint("CheckForNoAssociateOption:Failed locating legacybiosext:%0x\n", status);
    return;
  }
  EFI_LEGACY_BIOS_PROTOCOL* legacyBios = nullptr;
  if (const EFI_STATUS status = LocateProtocol(legacyBios); EFI_ERROR(status)) {
    DebugPrint("CheckForNoAssociateOption:Failed locating legacybios:%0x\n", status);
    return;
  }
  AddPlaceholders(*extension, *legacyBios);
}

void InactivateLoadingPlaceholderOption() {
  const bool policy = HaveVbootPolicy();
  if (policy) {
    DebugPrint("InactivateLoadingPlaceholderOption: Have FlexBoot policy\n");
  }
  const bool deleteUefi = !policy && IsUefiModeOff();
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    if (IsPlaceholder(*option)) {
      Inactivate(*option);
    }
    if (deleteUefi && !IsLegacyOption(*option) && !IsBuiltInApplicationOption(*option) && IsNamedUefi(*option)) {
      DeleteBootOption(BootOptionList, option);
    }
    option = next;
  }
}

}  // namespace bds
