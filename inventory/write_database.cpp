// The database is made of the records and of the slots, and given to the BMC and to NVRAM.
#include "inventory/mac_database.h"

#include "bmc/bt_file.h"
#include "inventory/adapter_table.h"
#include "inventory/write_database.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kTextSize = 256;  // of a slot's name with its NUL

// The slot's name as ASCII in text. False, and an empty text, when it is too long for a record.
bool NarrowSlotName(const CHAR16* name, CHAR8* text, UINTN& length) {
  for (length = 0; name != nullptr && length < kTextSize - 1; ++length) {
    const auto character = LoadUnaligned<CHAR16>(name + length);
    if (character == 0) {
      break;
    }
    text[length] = static_cast<CHAR8>(character & 0xFF);
  }
  const bool fits = length <= kMacDatabaseNameLength;
  if (!fits) {
    length = 0;
  }
  text[length] = 0;
  return fits;
}

void FillSlot(MAC_DATABASE_SLOT& record, UINTN k, const PCI_SLOT_ENTRY& slot, UINT16 counted, CHAR8* text) {
  const SLOT_ADAPTER* adapter = FindSlotAdapter(slot);
  record.SlotId = slot.SlotNumber;
  record.InterfaceCount = adapter != nullptr ? adapter->InterfaceCount : counted;
  DebugPrint("MacDB->Slots[%d].SlotId \t     = %d\n", k, UINT16{record.SlotId});
  DebugPrint("SlotInfoEntry[%d].SlotVenId        = %x\n", k, UINT16{slot.VendorId});
  DebugPrint("SlotInfoEntry[%d].SlotDevId        = %x\n", k, UINT16{slot.DeviceId});
  DebugPrint("SlotInfoEntry[%d].SlotSubSysVenId  = %x\n", k, UINT16{slot.SubsystemVendorId});
  DebugPrint("SlotInfoEntry[%d].SlotSubSysDevId  = %x\n", k, UINT16{slot.SubsystemId});
  UINTN length = 0;
  if (!NarrowSlotName(slot.Name, text, length)) {
    DebugPrint("%a:The name of slot %d is too long for MacDB, leaving it out\n", "GET_MAC_ADDRESS_FROM_NII_PROTOCOL",
               UINT16{slot.SlotNumber});
  }
  CopyMemory(record.Name, text, length);
  DebugPrint("SlotId = %0x, Length = %0x, String = %a, IC = %0x\n", UINT16{record.SlotId}, length,
             static_cast<const CHAR8*>(text), UINT16{record.InterfaceCount});
}

// The number of records filled.
UINT8 FillSlots(MAC_DATABASE_HEADER& database, SlotEntries slots, const INTERFACE_RECORDS& records, CHAR8* text) {
  UINT8 filled = 0;
  for (UINTN k = 0; k < slots.size(); ++k) {
    const PCI_SLOT_ENTRY& slot = slots[k];
    if (slot.Enabled == 0 || slot.Kind != kPciSlotKindAdapter || slot.VendorId == kBoardVendor) {
      continue;
    }
    if (k >= kMacDatabaseSlots) {
      DebugPrint("%a:MacDB has no room for slot %d, leaving it out\n", "GET_MAC_ADDRESS_FROM_NII_PROTOCOL",
                 UINT16{slot.SlotNumber});
      continue;
    }
    FillSlot(database.Slots[k], k, slot, records.SlotInterfaces[k], text);
    ++filled;
  }
  return filled;
}

void FillLom(MAC_DATABASE_SLOT& record, UINT16 interfaces) {
  if (interfaces == 0) {
    return;
  }
  record.SlotId = kSlotIdLom;
  record.InterfaceCount = interfaces;
  CopyMemory(record.Name, kLomName, sizeof(kLomName) - 1);
}

void StoreOnBmc(Bytes database) {
  BT_FILE_CONTEXT context;
  UINT8 result = BtOpenFile(context, kMacDatabaseFile, BT_CREATE_FILE);
  if (result == BT_DONE) {
    result = BtWriteFile(context, database.data(), static_cast<UINT32>(database.size()));
    if (result == BT_DONE && context.IsOpen == 0) {
      result = BT_FAILED;
    }
    const UINT8 closed = BtCloseFile(context);
    result = result == BT_DONE && closed != 0 ? UINT8{BT_FAILED} : result;
  }
  if (result != BT_DONE) {
    DebugPrint("%a:The BMC does not take %a = %r\n", "GET_MAC_ADDRESS_FROM_NII_PROTOCOL", kMacDatabaseFile,
               BtStatusToEfiStatus(result));
  }
}

}  // namespace

EFI_STATUS WriteMacDatabase(SlotEntries slots, const INTERFACE_RECORDS& records, UINTN devices) {
  // A controller that is on the board and behind a slot has two records.
  const UINTN told = records.FromDrivers + devices;
  const UINTN count = told < records.Count() ? records.Count() : told;
  DebugPrint("Interfaces count=%0x\n", count);
  const UINTN size = sizeof(MAC_DATABASE_HEADER) + count * sizeof(MAC_DATABASE_INTERFACE);
  const PoolPtr<UINT8> bytes(static_cast<UINT8*>(AllocateZeroPool(size)));
  if (!bytes) {
    DebugPrint("Failed allocating Memory [MacDB] = %r\n", EFI_OUT_OF_RESOURCES);
    return EFI_OUT_OF_RESOURCES;
  }
  const PoolPtr<CHAR8> text = AllocateArray<CHAR8>(kTextSize);
  if (!text) {
    DebugPrint("Failed allocating Memory [TempStr] = %r\n", EFI_OUT_OF_RESOURCES);
    return EFI_OUT_OF_RESOURCES;
  }
  auto& database = *reinterpret_cast<MAC_DATABASE_HEADER*>(bytes.get());
  database.Signature = kMacDatabaseSignature;
  database.InterfaceCount = static_cast<UINT16>(count);
  database.Size = static_cast<UINT16>(size);
  const UINT8 filled = FillSlots(database, slots, records, text.get());
  FillLom(database.Lom, records.FromBoard);
  database.SlotCount = filled;
  DebugPrint("SlotswithNics = %0x\n", filled);
  CopyMemory(bytes.get() + sizeof(database), records.All().data(), records.All().size_bytes());
  const Bytes whole{reinterpret_cast<const std::byte*>(bytes.get()), size};
  StoreOnBmc(whole);
  if (EFI_ERROR(SetVariableReplacing(kMacDatabaseName, kMacDatabaseGuid, EFI_VARIABLE_BOOTSERVICE_ACCESS, whole))) {
    DebugPrint("MacDB set NVRAM failed\n");
  }
  return EFI_SUCCESS;
}

}  // namespace bds
