#include "osopt/default_order.h"

#include "bootopt/dumps/dumps.h"
#include "bootopt/legacy_dev_order.h"
#include "osopt/steps.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr char kSetDefault[] = "SetDefaultKuiBootOrder";

// BBS device types, the first to be tried first.
constexpr UINT16 kDefaultTypes[] = {
    3,     // CD-ROM
    2,     // hard disk
    1,     // floppy
    6,     // network
    5,     // USB
    0x80,  // BEV
    4,     // PCMCIA
    0xFF,
};

// The two bytes behind the first node's header are a type in legacy options only; others rank by what stands there.
UINTN DefaultRank(const BOOT_OPTION& option) {
  UINT16 type = 0;
  UINTN rank = 0;
  const bool typed = FirstNodeDeviceType(option, type);
  while (rank < std::size(kDefaultTypes) && (!typed || kDefaultTypes[rank] != type)) {
    ++rank;
  }
  return rank;
}

void Save(const CHAR16* name, const EFI_GUID& guid, Bytes data) {
  const EFI_STATUS status = SetVariableReplacing(name, guid, kNonVolatileBootRuntime, data);
  if (EFI_ERROR(status) && !data.empty()) {  // that there is none to delete is no failure
    DebugPrint("%a:Writing %S failed:%r\n", kSetDefault, name, status);
  }
}

void SaveDefaultLegacyDevOrder() {
  PoolBuffer records;
  const EFI_STATUS status = BuildLegacyDevOrder(BootOptionList, DisabledDevices::AsEnabled, records);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:No memory for the legacy device order:%r\n", kSetDefault, status);
    return;
  }
  Save(kDefaultLegacyDevOrderName, kDefaultLegacyDevOrderGuid, records.Bytes());
}

void SaveDefaultBootOrder() {
  const auto numbers = AllocateArray<UINT16>(BootOptionList.Count);
  if (!numbers) {
    DebugPrint("%a:No memory for the default boot order\n", kSetDefault);
    return;
  }
  UINTN count = 0;
  UINT16 last = kNoBootOptionNumber;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    const UINT16 number = option->BootOptionNumber;
    const bool hidden = (option->Attributes & LOAD_OPTION_HIDDEN) != 0;
    // A group's header and members share one number; an option that got none is not saved.
    if (!hidden && number != last && number != kNoBootOptionNumber) {
      numbers[count++] = last = number;
    }
  }
  Save(kDefaultBootOrderName, kDefaultBootOrderGuid,
       {reinterpret_cast<const std::byte*>(numbers.get()), count * sizeof(UINT16)});
}

}  // namespace

INTN CompareDefaultIndex(const BOOT_OPTION& a, const BOOT_OPTION& b) {
  const UINTN first = DefaultRank(a);
  const UINTN second = DefaultRank(b);
  return first == second ? 0 : first < second ? -1 : 1;
}

void SetDefaultKuiBootOrder() {
  if (BootOptionList.First == nullptr) {
    return;
  }
  SortList(BootOptionList, CompareDefaultIndex);
  DumpBootOptionList(BootOptionList, "BootOptionList After CompareDefaultIndex");
  SaveDefaultLegacyDevOrder();
  SaveDefaultBootOrder();
}

}  // namespace bds
