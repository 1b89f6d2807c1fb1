// The server's slots and the buses behind them, read from the root ports' configuration space.
#include "core/hob_list.h"
#include "flexboot/root_bridge_reads.h"
#include "flexboot/slot_table.h"
#include "flexboot/state.h"
#include "platform/veyra_hobs.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINT8 kSecondaryBusRegister = 0x19;
constexpr UINT8 kSubordinateBusRegister = 0x1A;
constexpr UINTN kRiserPorts = 3;  // root ports over which the riser spreads its slot
constexpr UINT8 kRiserPortStep = 2;

// A field of a block whose record begins with the block's header; false when the block is absent or too short.
bool ReadHobByte(const EFI_GUID& name, UINTN offset, UINT8& value) {
  Bytes data;
  if (!FindGuidHob(gServices.HobList, name, data) || data.size() <= offset - sizeof(EFI_HOB_GUID_TYPE)) {
    return false;
  }
  value = static_cast<UINT8>(data[offset - sizeof(EFI_HOB_GUID_TYPE)]);
  return true;
}

bool IsTableEnd(const SLOT_TABLE_ENTRY& entry) {
  constexpr UINTN kShortestName = 3;
  return TextLength(entry.Name) < kShortestName || (entry.Bus == 0 && entry.Device == 0 && entry.Function == 0);
}

// Widens the buses by those behind one root port. The status is that of the port's reads; an absent port has none.
EFI_STATUS AddRootPort(const RootBridgeReads& reads, const SLOT_TABLE_ENTRY& port, UINT8 function, SLOT_BUSES& buses) {
  UINT16 vendor = 0;
  EFI_STATUS status = reads.Read(port.Bus, port.Device, function, kVendorIdRegister, vendor);
  if (EFI_ERROR(status) || vendor == kNoVendor) {
    return status;
  }
  UINT8 secondary = 0;
  UINT8 subordinate = 0;
  status = reads.Read(port.Bus, port.Device, function, kSecondaryBusRegister, secondary);
  if (EFI_ERROR(status)) {
    return status;
  }
  status = reads.Read(port.Bus, port.Device, function, kSubordinateBusRegister, subordinate);
  if (EFI_ERROR(status)) {
    return status;
  }
  if (secondary < buses.SecondaryBus) {
    DebugPrint("Secondary bus from 0x%x to 0x%x\n", buses.SecondaryBus, secondary);
    buses.SecondaryBus = secondary;
  }
  if (subordinate > buses.SubordinateBus) {
    DebugPrint("subordinate bus from 0x%x to 0x%x\n", buses.SubordinateBus, subordinate);
    buses.SubordinateBus = subordinate;
  }
  return EFI_SUCCESS;
}

void DescribeSlot(UINTN index, const SLOT_TABLE_ENTRY& port) {
  if (gFlexBoot.BrightmereSlot != 0) {
    DebugPrint("Brightmere is present in slot %x \n", gFlexBoot.BrightmereSlot);
  } else {
    DebugPrint("NO Brightmere present \n");
  }
  DebugPrint("For slot %d, Name is %a\n", index, port.Name);
  DebugPrint("Bus Num %x Dev %x Func %x \n", port.Bus, port.Device, port.Function);
}

}  // namespace

UINTN SlotTableLength() {
  UINTN length = 0;
  while (!IsTableEnd(kSlotTable[length])) {
    ++length;
  }
  return length;
}

bool ReadSocketCount(UINT8& sockets) {
  return ReadHobByte(gVeyraMemoryHobGuid, offsetof(VEYRA_MEMORY_HOB, SocketCount), sockets);
}

EFI_STATUS GetBrightmereSlot() {
  DebugPrint("In GetBrightmereSlot \n");
  gFlexBoot.BrightmereSlot = 0;
  UINT8 slot1 = 0;
  UINT8 slot2 = 0;
  if (!ReadHobByte(gVeyraBrightmereTypeHobGuid, offsetof(VEYRA_BRIGHTMERE_TYPE_HOB, Slot1), slot1) ||
      !ReadHobByte(gVeyraBrightmereTypeHobGuid, offsetof(VEYRA_BRIGHTMERE_TYPE_HOB, Slot2), slot2)) {
    DebugPrint("%s ERROR : pVeyraBrightmereTypeHob not found!\n", "GetBrightmereSlot");
    return EFI_SUCCESS;
  }
  if (slot1 == kBrightmereInSlot1) {
    gFlexBoot.BrightmereSlot = 1;
  } else if (slot2 == kBrightmereInSlot2) {
    gFlexBoot.BrightmereSlot = 2;
  }
  return EFI_SUCCESS;
}

EFI_STATUS GetSlotBusNum(UINTN slot, SLOT_BUSES& buses) {
  UINT8 sockets = 0;
  if (!ReadSocketCount(sockets)) {
    DebugPrint("[Type201] - VeyraMemoryHob not found!\n");
    return EFI_NOT_FOUND;
  }
  const UINTN index = slot - 1;
  const UINTN length = SlotTableLength();
  DebugPrint("Number of sockets is %d\n", sockets);
  DebugPrint("Got max slot ID of %d\n", length);
  DebugPrint("Slot ID: %d (adjusted)\n", index);
  RootBridgeReads reads;
  EFI_STATUS status = reads.Open();
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Error locating root bridge IO: %r\n", "GetSlotBusNum", status);
    return status;
  }
  if (index >= length) {
    return EFI_NOT_FOUND;
  }
  const SLOT_TABLE_ENTRY& port = kSlotTable[index];
  DescribeSlot(index, port);
  SLOT_BUSES found;
  const UINTN ports = slot == gFlexBoot.BrightmereSlot ? kRiserPorts : 1;
  for (UINTN i = 0; i < ports; ++i) {
    status = AddRootPort(reads, port, static_cast<UINT8>(port.Function + i * kRiserPortStep), found);
  }
  if (EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("SlotID %d  Bus: %x\n", slot, found.SecondaryBus);
  found.Name = port.Name;
  buses = found;
  return EFI_SUCCESS;
}

}  // namespace bds
