// Memory type information: before an operating system starts, the pages that this boot used are compared with what was
// set aside at its beginning. A type that needs more gets more on the next boot, so that the memory map that a
// hibernated system saw stays the same from boot to boot.
#include "platform/memory_type_information.h"

#include "core/hob_list.h"
#include "core/state.h"
#include "core/steps.h"
#include "platform/signals.h"
#include "support/event.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kMaxTypes = 64;  // of a list whose size nobody tells
constexpr UINTN kMaxNotes = 64;  // blocks looked at for the note on the variables' vendor
constexpr EFI_BOOT_MODE kModesWithoutUpdate[] = {BOOT_ON_S4_RESUME, BOOT_ON_FLASH_UPDATE, BOOT_IN_RECOVERY_MODE};
// Types that an operating system keeps across hibernation: growing one asks for a boot with the new map.
constexpr UINT32 kTypesThatReset[] = {EfiReservedMemoryType, EfiRuntimeServicesCode, EfiRuntimeServicesData,
                                      EfiACPIReclaimMemory, EfiACPIMemoryNVS};

template <UINTN N>
bool IsOneOf(UINT32 value, const UINT32 (&list)[N]) {
  for (const UINT32 item : list) {
    if (item == value) {
      return true;
    }
  }
  return false;
}

struct TypeList {
  EFI_MEMORY_TYPE_INFORMATION* Entries = nullptr;  // in the hand-off block, which is ours to change
  UINTN Count = 0;                                 // without the entry that ends the list

  Bytes WithEnd() const { return {reinterpret_cast<const std::byte*>(Entries), (Count + 1) * sizeof(*Entries)}; }
};

bool FindTypeList(TypeList& list) {
  Bytes data;
  if (!FindGuidHob(gServices.HobList, gEfiMemoryTypeInformationGuid, data)) {
    return false;
  }
  list.Entries = reinterpret_cast<EFI_MEMORY_TYPE_INFORMATION*>(const_cast<std::byte*>(data.data()));
  const UINTN room = data.size() / sizeof(*list.Entries);
  for (list.Count = 0; list.Count < room; ++list.Count) {
    if (list.Entries[list.Count].Type == EfiMaxMemoryType) {
      return true;
    }
  }
  return false;
}

// Some platforms name another vendor for the variables, by a hand-off block that holds nothing but the usual GUID. The
// performance records of earlier phases lie in blocks of the same name, so that the note need not be the first.
const EFI_GUID& VariableVendor() {
  const void* rest = gServices.HobList;
  Bytes data;
  for (UINTN i = 0; i < kMaxNotes && FindGuidHob(rest, kFirmwarePerformanceGuid, data); ++i) {
    if (data.size() == sizeof(EFI_GUID) && EqualMemory(data.data(), &gEfiMemoryTypeInformationGuid, sizeof(EFI_GUID))) {
      return kFirmwarePerformanceGuid;
    }
    rest = data.data() + data.size();
  }
  return gEfiMemoryTypeInformationGuid;
}

UINT32 PagesUsed(UINT32 type) {
  const auto* used =
      static_cast<const EFI_MEMORY_TYPE_INFORMATION*>(FindConfigurationTable(gEfiMemoryTypeInformationGuid));
  for (UINTN i = 0; used != nullptr && i < kMaxTypes && used[i].Type != EfiMaxMemoryType; ++i) {
    if (used[i].Type == type) {
      return used[i].NumberOfPages;
    }
  }
  return 0;
}

// A quarter more than was used, so that small changes do not ask for a reset each time.
UINT32 PagesNeeded(UINT32 type) {
  const UINT64 used = PagesUsed(type);
  const UINT64 needed = used + used / 4;
  return needed > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<UINT32>(needed);
}

struct Growth {
  bool Changed = false;
  bool NeedsReset = false;
};

Growth GrowTypes(const TypeList& list) {
  Growth growth;
  for (UINTN i = 0; i < list.Count; ++i) {
    EFI_MEMORY_TYPE_INFORMATION& entry = list.Entries[i];
    const UINT32 needed = PagesNeeded(entry.Type);
    if (needed <= entry.NumberOfPages) {
      continue;
    }
    entry.NumberOfPages = needed;
    growth.Changed = true;
    growth.NeedsReset = growth.NeedsReset || IsOneOf(entry.Type, kTypesThatReset);
  }
  return growth;
}

void UpdateMemoryTypeInformation() {
  TypeList list;
  if (!FindTypeList(list)) {
    return;
  }
  const EFI_GUID& vendor = VariableVendor();
  const bool firstTime = !VariableExists(kPreviousMemoryTypeInformationName, vendor);
  static_cast<void>(SetVariableReplacing(kPreviousMemoryTypeInformationName, vendor, kNonVolatileBoot, list.WithEnd()));
  const Growth growth = GrowTypes(list);
  if (!growth.Changed) {
    return;
  }
  static_cast<void>(WriteVariable(kMemoryTypeInformationName, vendor, kNonVolatileBoot, list.WithEnd()));
  if (firstTime && growth.NeedsReset) {
    RuntimeServices()->ResetSystem(EfiResetCold, EFI_SUCCESS, 0, nullptr);
  }
}

// Of the four occasions the first one counts; the flag goes first, since the work can cause another.
VOID EFIAPI OnBootImminent(EFI_EVENT event, VOID*) {
  if (!gCore.MemoryTypesUpdated) {
    gCore.MemoryTypesUpdated = TRUE;
    UpdateMemoryTypeInformation();
  }
  static_cast<void>(BootServices()->CloseEvent(event));
}

}  // namespace

void RegisterMemoryTypeInformationUpdateCallback() {
  EFI_BOOT_MODE mode = 0;
  if (!ReadBootMode(gServices.HobList, mode) || IsOneOf(mode, kModesWithoutUpdate)) {
    return;
  }
  static_cast<void>(NotifyOnProtocol(kMemoryTypeUpdateSignalGuid, OnBootImminent));
  static_cast<void>(NotifyOnProtocol(kBootStartSignalGuid, OnBootImminent));
  Event legacyBoot;
  static_cast<void>(legacyBoot.CreateInGroup(gEfiEventLegacyBootGuid, OnBootImminent));
  static_cast<void>(legacyBoot.release());
  Event exitBootServices;
  static_cast<void>(exitBootServices.Create(EVT_SIGNAL_EXIT_BOOT_SERVICES, TPL_CALLBACK, OnBootImminent));
  static_cast<void>(exitBootServices.release());
}

}  // namespace bds
