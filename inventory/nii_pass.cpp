// The second pass: ports that network drivers publish, and the place in the server of those that the first pass found.
#include "inventory/driver_ports.h"
#include "inventory/mac_inventory.h"
#include "inventory/write_database.h"
#include "platform/network_interface_identifier.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

void LogRecord(const INTERFACE_RECORDS& records, const MAC_DATABASE_INTERFACE& record) {
  const UINTN offset = (records.Count() - 1) * sizeof(record);
  DebugPrint("Slot:  MacDBOffset = 0x%08x,    Slot Entry = %d, Interface ID = 0x%04x   MacAddress=  %a\n", offset,
             UINT16{record.SlotId}, UINT16{record.InterfaceId}, record.MacAddress);
}

void RecordSlotAdapters(const ADAPTER_INVENTORY& inventory, SlotEntries slots, INTERFACE_RECORDS& records) {
  for (const ADAPTER_RECORD& adapter : inventory) {
    UINTN place = 0;
    if (!FindSlotOfBus(slots, adapter.Bus, true, place)) {
      continue;
    }
    const UINT16 number = slots[place].SlotNumber;
    DebugPrint("This MAC is from Slot:%d\n", number);
    DebugPrint("InterfaceId = %0x\n", adapter.LanPort);
    const UINT16 slotId = adapter.LomType == Intel_Kestrelton ? kSlotIdMlom : number;
    const MAC_DATABASE_INTERFACE* record = records.Add(adapter.LanPort, slotId, adapter.MacAddress);
    if (record != nullptr) {
      LogRecord(records, *record);
    }
  }
}

bool IsOnBoard(const ADAPTER_RECORD& adapter) {
  return adapter.VendorId == kIntelVendor && adapter.DeviceId == kI350Device &&
         adapter.SubsystemVendorId == kBoardVendor && adapter.SubsystemId == kI350LomSubsystem;
}

// index: of the port among those of the board.
void StoreLomInterface(UINTN index, const ADAPTER_RECORD& adapter) {
  if (index >= std::size(kLomInterfaceNames)) {
    DebugPrint("%a:There is no variable for LOM port %d, leaving it out\n", "GET_MAC_ADDRESS_FROM_NII_PROTOCOL", index);
    return;
  }
  LOM_INTERFACE variable{};
  CopyMemory(variable.MacAddress, adapter.MacAddress, sizeof(variable.MacAddress));
  variable.LanPort = adapter.LanPort;
  const EFI_STATUS status = SetVariableReplacing(kLomInterfaceNames[index], kMacDatabaseGuid,
                                                 EFI_VARIABLE_BOOTSERVICE_ACCESS, AsBytes(variable));
  if (EFI_ERROR(status)) {
    DebugPrint("SetVariable->LOMInterfaceNames[%d] failed!  Status = %r\n", index, status);
  }
}

void RecordBoardPorts(const ADAPTER_INVENTORY& inventory, INTERFACE_RECORDS& records) {
  for (const ADAPTER_RECORD& adapter : inventory) {
    if (!IsOnBoard(adapter)) {
      continue;
    }
    MAC_DATABASE_INTERFACE* record = records.Add(adapter.LanPort, kSlotIdLom, adapter.MacAddress);
    if (record == nullptr) {
      continue;
    }
    record->LomMark = kLomMark;
    LogRecord(records, *record);
    StoreLomInterface(records.FromBoard, adapter);
    ++records.FromBoard;
  }
}

}  // namespace

EFI_STATUS GET_MAC_ADDRESS_FROM_NII_PROTOCOL(const ADAPTER_INVENTORY& inventory) {
  DebugPrint("GET_MAC_ADDRESS_FROM_NII_PROTOCOL().Entry\n");
  HandleBuffer oldPorts;
  EFI_STATUS status = oldPorts.Locate(ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_OLD>);
  if (EFI_ERROR(status)) {
    DebugPrint("Error locating Old NII handles = %r\n", status);
  }
  DebugPrint("Total Old NII Handles = %0x\n", oldPorts.size());
  HandleBuffer ports;
  status = ports.Locate(ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed locating NII handles = %r\n", status);
  }
  DebugPrint("Total NII Handles = %0x\n", ports.size());
  DebugPrint("NiiCount = %d   gTotalEEPROMDevices = %d\n", ports.size(), inventory.gTotalEEPROMDevices);
  INTERFACE_RECORDS records;
  status = records.Reserve(ports.size() + 2 * inventory.gTotalEEPROMDevices);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed memory allocation = %0x\n", status);
    return status;
  }
  PCI_SLOT_INFO* info = nullptr;
  status = LocateProtocol(info);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed locating PciSlotInfo = %r\n", status);
    return status;
  }
  const SlotEntries slots = SlotEntriesOf(*info);
  RecordDriverPorts(ports, slots, records);
  LogOldDriverPorts(oldPorts, slots);
  RecordSlotAdapters(inventory, slots, records);
  RecordBoardPorts(inventory, records);
  status = WriteMacDatabase(slots, records, inventory.gTotalEEPROMDevices);
  if (EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("GET_MAC_ADDRESS_FROM_NII_PROTOCOL().Exit\n");
  return EFI_SUCCESS;
}

}  // namespace bds
