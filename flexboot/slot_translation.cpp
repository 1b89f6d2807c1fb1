// The virtual functions of the server's interface cards, found by a scan of every bus behind every slot.
#include "flexboot/slot_translation.h"

#include "bootopt/bbs_table.h"
#include "flexboot/policy_record.h"
#include "flexboot/policy_teller.h"
#include "flexboot/root_bridge_reads.h"
#include "flexboot/slot_table.h"
#include "flexboot/state.h"
#include "platform/legacy_bios.h"

namespace bds {
namespace {

constexpr char kCreate[] = "CreateVeyraOrlaXlatTbl";
constexpr UINT16 kInterfaceCardVendor = 0x1137;
constexpr UINT16 kVirtualNicDevice = 0x0043;
constexpr UINT16 kVirtualHbaDevice = 0x0045;
constexpr UINTN kDevicesPerBus = 32;
constexpr UINTN kFunctionsPerDevice = 8;

UINT8 KindOf(UINT16 deviceId) {
  switch (deviceId) {
    case kVirtualNicDevice:
      return kVirtualNic;
    case kVirtualHbaDevice:
      return kVirtualHba;
    default:
      return 0;
  }
}

// One slot's scan.
struct SLOT_SCAN {
  const RootBridgeReads& Reads;
  UINTN Slot;
  const char* Name;
  VEYRA_ORLA_LIST& List;
  UINTN Instance = 0;  // functions found so far
};

EFI_STATUS ScanFunction(SLOT_SCAN& scan, UINTN bus, UINTN device, UINTN function) {
  UINT16 id = 0;
  if (EFI_ERROR(scan.Reads.Read(bus, device, function, kVendorIdRegister, id))) {
    DebugPrint("Error reading VID from %x:%x:%x\n", bus, device, function);
    return EFI_SUCCESS;
  }
  if (id != kInterfaceCardVendor) {
    return EFI_SUCCESS;
  }
  if (EFI_ERROR(scan.Reads.Read(bus, device, function, kDeviceIdRegister, id))) {
    DebugPrint("Error reading DID from %x:%x:%x\n", bus, device, function);
    return EFI_SUCCESS;
  }
  const UINT8 kind = KindOf(id);
  if (kind == 0) {
    return EFI_SUCCESS;
  }
  VEYRA_ORLA* found = AppendNew(scan.List);
  if (found == nullptr) {
    DebugPrint("Failed to add device\n");
    return EFI_OUT_OF_RESOURCES;
  }
  found->Kind = kind;
  found->Instance = ++scan.Instance;
  found->Slot = scan.Slot;
  found->SlotNumber = static_cast<UINT16>(scan.Slot);
  found->Bus = static_cast<UINT16>(bus);
  found->Device = static_cast<UINT16>(device);
  found->Function = static_cast<UINT16>(function);
  found->SlotName = scan.Name;
  return EFI_SUCCESS;
}

EFI_STATUS ScanBus(SLOT_SCAN& scan, UINTN bus) {
  for (UINTN location = 0; location < kDevicesPerBus * kFunctionsPerDevice; ++location) {
    const EFI_STATUS status = ScanFunction(scan, bus, location / kFunctionsPerDevice, location % kFunctionsPerDevice);
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

// A slot that is absent, switched off or does not answer is left out.
EFI_STATUS ScanSlot(const RootBridgeReads& reads, UINTN slot, VEYRA_ORLA_LIST& list) {
  SLOT_BUSES buses;
  EFI_STATUS status = GetSlotBusNum(slot, buses);
  if (status == EFI_NOT_FOUND) {
    DebugPrint("GetSlotBusNum() returns %r for slot %d\n", status, slot);
    return EFI_SUCCESS;
  }
  if (EFI_ERROR(status)) {
    DebugPrint("%a: Got error %r from GetSlotBusNum()\n", kCreate, status);
    return EFI_DEVICE_ERROR;
  }
  DebugPrint("%a: slot %d %a secondary bus %0x, subordiate bus num %0x\n", kCreate, slot, buses.Name,
             buses.SecondaryBus, buses.SubordinateBus);
  if (buses.SubordinateBus < buses.SecondaryBus) {
    DebugPrint("slot is disabled\n");
    return EFI_SUCCESS;
  }
  UINT16 vendor = 0;
  status = reads.Read(buses.SecondaryBus, 0, 0, kVendorIdRegister, vendor);
  if (EFI_ERROR(status)) {
    DebugPrint("Error: Unable to read from PCI %x:0:0 (%r).\n Go to next slot.\n", buses.SecondaryBus, status);
    return EFI_SUCCESS;
  }
  SLOT_SCAN scan{reads, slot, buses.Name, list};
  for (UINTN bus = buses.SecondaryBus; bus <= buses.SubordinateBus; ++bus) {
    status = ScanBus(scan, bus);
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS ScanSlots(VEYRA_ORLA_LIST& list) {
  RootBridgeReads reads;
  if (const EFI_STATUS status = reads.Open(); EFI_ERROR(status)) {
    DebugPrint("Failed obtaining RootBridgeIO:%r\n", status);
    return status;
  }
  GetBrightmereSlot();
  const UINTN slots = SlotTableLength();
  for (UINTN slot = 1; slot <= slots; ++slot) {
    if (const EFI_STATUS status = ScanSlot(reads, slot, list); EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

const char* KindWord(const VEYRA_ORLA& orla) { return orla.Kind == kVirtualNic ? "vNIC:" : "vHBA:"; }

void ShowBeforeProcessing(const VEYRA_ORLA_LIST& list) {
  DebugPrint("Before processing:\n");
  for (const VEYRA_ORLA* orla = list.First; orla != nullptr; orla = orla->Next) {
    DebugPrint("%a", KindWord(*orla));
    DebugPrint(" %a(%d), 0x%x:0x%x:0x%x #%d:%d ", orla->SlotName, orla->SlotNumber, orla->Bus, orla->Device,
               orla->Function, orla->Slot, orla->Instance);
    if (orla->BbsIndex < kNoBbsIndex) {
      DebugPrint("legacy bootable 0x%x\n", orla->BbsIndex);
    } else {
      DebugPrint("not legacy bootable\n");
    }
  }
  DebugPrint("end of list\n");
}

// For the log and for the people who read the report.
void ShowAfterProcessing(const VEYRA_ORLA_LIST& list) {
  DebugPrint("After processing:\n");
  AppendPolicyDebugText("Virtual adapter list:\n");
  for (const VEYRA_ORLA* orla = list.First; orla != nullptr; orla = orla->Next) {
    TellPolicyReader("%s", KindWord(*orla));
    TellPolicyReader(" %s(%d), 0x%x:0x%x:0x%x #%d:%d ", orla->SlotName, orla->SlotNumber, orla->Bus, orla->Device,
                     orla->Function, orla->Slot, orla->Instance);
    if (orla->BbsIndex < kNoBbsIndex) {
      TellPolicyReader("legacy bootable, BBS index 0x%x\n", orla->BbsIndex);
    } else {
      TellPolicyReader("not legacy bootable\n");
    }
  }
  DebugPrint("end of list\n");
  AppendPolicyDebugText("\n");
}

bool IsAt(const BBS_TABLE& entry, const VEYRA_ORLA& orla) {
  return entry.BootPriority != kBbsEmpty && entry.Bus == orla.Bus && entry.Device == orla.Device &&
         entry.Function == orla.Function;
}

// The last entry at the function's location counts.
void FindBbsEntry(const BBS_TABLE* table, VEYRA_ORLA& orla) {
  for (UINT16 index = 0; index < kBbsTableEntries; ++index) {
    if (!IsAt(table[index], orla)) {
      continue;
    }
    if (table[index].DeviceType != BBS_TYPE_EMBEDDED_NETWORK) {
      DebugPrint("Orla dev at %x:%x:%x presents an HD.\n", orla.Bus, orla.Device, orla.Function);
    }
    DebugPrint("BBS index %d is a match for instance %d:%d\n", index, orla.Slot, orla.Instance);
    orla.BbsIndex = index;
  }
}

}  // namespace

EFI_STATUS CreateVeyraOrlaXlatTbl() {
  UINT8 sockets = 0;
  if (!ReadSocketCount(sockets)) {
    DebugPrint("[Type201] - VeyraMemoryHob not found!\n");
    return EFI_NOT_FOUND;
  }
  DebugPrint("Number of sockets is %d\n", sockets);
  DebugPrint("CreateVeyraOrlaXlatTbl: Max slot ID of %d\n", SlotTableLength());
  DebugPrint("Creating Veyra Orla Translate table\n");
  gFlexBoot.VeyraOrlaList = NewListHeader<VEYRA_ORLA>();
  if (!gFlexBoot.VeyraOrlaList) {
    DebugPrint("%a:Failed obtaining memory for VeyraOrlaList\n", kCreate);
    return EFI_OUT_OF_RESOURCES;
  }
  VEYRA_ORLA_LIST& list = *gFlexBoot.VeyraOrlaList.get();
  if (const EFI_STATUS status = ScanSlots(list); EFI_ERROR(status)) {
    return status;
  }
  ShowBeforeProcessing(list);
  PostProcessOrlaList(list);
  ShowAfterProcessing(list);
  DebugPrint("vNIC list generated\n");
  return EFI_SUCCESS;
}

EFI_STATUS PostProcessOrlaList(VEYRA_ORLA_LIST& list) {
  EFI_LEGACY_BIOS_PROTOCOL* legacyBios = nullptr;
  EFI_STATUS status = LocateProtocol(legacyBios);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed locating LegacyBios:%r\n", "PostProcessOrlaList", status);
    return status;
  }
  BbsInfo bbs;
  status = GetBbsInfo(bbs);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed locating the BBS table:%r\n", "PostProcessOrlaList", status);
    return status;
  }
  for (VEYRA_ORLA* orla = list.First; orla != nullptr; orla = orla->Next) {
    FindBbsEntry(bbs.Table, *orla);
  }
  return EFI_SUCCESS;
}

EFI_STATUS FindOrlaFunction(UINT64 slot, UINT64 instance, POLICY_PCI_IDENTITY& data, const VEYRA_ORLA_LIST* list) {
  for (const VEYRA_ORLA* orla = list != nullptr ? list->First : nullptr; orla != nullptr; orla = orla->Next) {
    if (orla->Slot != slot || orla->Instance != instance) {
      continue;
    }
    DebugPrint("matched vNIC\n");
    data.PciBus = static_cast<UINT8>(orla->Bus);
    data.PciDevice = static_cast<UINT8>(orla->Device);
    data.PciFunction = static_cast<UINT8>(orla->Function);
    data.PciAddressPresent = 1;
    return EFI_SUCCESS;
  }
  DebugPrint("Orla not found\n");
  return EFI_NOT_FOUND;
}

}  // namespace bds
