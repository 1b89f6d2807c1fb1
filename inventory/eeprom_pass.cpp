// The first pass: controllers of known models tell their addresses through their own registers.
#include "inventory/adapter_eeprom.h"
#include "inventory/mac_inventory.h"
#include "platform/pci_config.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

// ---- Inventory records

EFI_STATUS ReadConfiguration(EFI_PCI_IO_PROTOCOL* pciIo, ADAPTER_RECORD& record) {
  UINTN segment = 0;
  UINTN bus = 0;
  UINTN device = 0;
  UINTN function = 0;
  EFI_STATUS status = pciIo->GetLocation(pciIo, &segment, &bus, &device, &function);
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR: PciIo->GetLocation API failed! Status = %r\n", status);
    return status;
  }
  DebugPrint("Bus=%x Dev=%x Fun=%x\n", bus, device, function);
  UINT8 header[PCI_CONFIG_HEADER_SIZE] = {};
  status = pciIo->Pci.Read(pciIo, EfiPciIoWidthUint8, 0, sizeof(header), header);
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR: EEPROM_GetFwInfo: Failure on retriving sdid & svid! Status = %r\n", status);
    return status;
  }
  record.Bus = bus;
  record.Device = device;
  record.Function = function;
  record.VendorId = LoadUnaligned<UINT16>(header + PCI_VENDOR_ID_OFFSET);
  record.DeviceId = LoadUnaligned<UINT16>(header + PCI_DEVICE_ID_OFFSET);
  record.RevisionId = header[PCI_REVISION_ID_OFFSET];
  CopyMemory(record.ClassCode, header + PCI_CLASSCODE_OFFSET, sizeof(record.ClassCode));
  record.SubsystemVendorId = LoadUnaligned<UINT16>(header + PCI_SUBSYSTEM_VENDOR_ID_OFFSET);
  record.SubsystemId = LoadUnaligned<UINT16>(header + PCI_SUBSYSTEM_ID_OFFSET);
  return EFI_SUCCESS;
}

// EFI_OUT_OF_RESOURCES when the pool is exhausted, otherwise the status of what failed on the device.
EFI_STATUS GetMacAddress(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, UINTN row, ADAPTER_INVENTORY& inventory) {
  DebugPrint("GetMacAddress().Entry\n");
  DebugPrint("LomType = %a\n", LomTypeName(lomType));
  PORT_ADDRESS address;
  EFI_STATUS status = ReadPortAddress(pciIo, lomType, address);
  if (EFI_ERROR(status)) {
    return status;
  }
  ADAPTER_RECORD record;
  status = ReadConfiguration(pciIo, record);
  if (EFI_ERROR(status)) {
    return status;
  }
  const CHAR16* name = EEPROMSupported_AdapterTable[row].CardName;
  PoolPtr<CHAR16> copy = CopyText(name, TextLength(name));
  if (!copy) {
    DebugPrint("AllocatePool function call for EEPROMSupported_AdapterTable[%d].CardName Failed! Status = %r\n", row,
               EFI_OUT_OF_RESOURCES);
    return EFI_OUT_OF_RESOURCES;
  }
  record.CardName = copy.get();
  record.LomType = lomType;
  CopyMemory(record.MacAddress, address.Words, sizeof(record.MacAddress));
  record.LanPort = static_cast<UINT8>(address.Port + 1);
  if (!inventory.Add(record)) {
    return EFI_OUT_OF_RESOURCES;
  }
  static_cast<void>(copy.release());
  DebugPrint("GetMacAddress().Exit\n");
  return EFI_SUCCESS;
}

// ---- Memory decoding

// Has a function decode its memory, and leaves it as it was found.
class MemoryDecoding {
 public:
  explicit MemoryDecoding(EFI_PCI_IO_PROTOCOL* pciIo) : pciIo_(pciIo) {
    status_ = pciIo->Pci.Read(pciIo, EfiPciIoWidthUint16, PCI_COMMAND_OFFSET, 2, words_);
    if (EFI_ERROR(status_)) {
      DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM(): ERROR on reading the command register! Status = %r\n", status_);
      return;
    }
    if ((words_[0] & EFI_PCI_COMMAND_MEMORY_SPACE) != 0) {
      return;
    }
    DebugPrint("Enabling Memory access BIT for the device!\n");
    switched_ = true;
    status_ = WriteCommand(static_cast<UINT16>(words_[0] | EFI_PCI_COMMAND_MEMORY_SPACE));
    if (EFI_ERROR(status_)) {
      DebugPrint("Error: mPciIo->Pci.Write(Enabling Memory access BIT) = %r\n", status_);
    }
  }
  // After a failed write too: nobody knows how far it came.
  ~MemoryDecoding() {
    const EFI_STATUS status = switched_ ? WriteCommand(words_[0]) : EFI_SUCCESS;
    if (EFI_ERROR(status)) {
      DebugPrint("Error: mPciIo->Pci.Write(Disabling Memory access BIT) = %r\n", status);
    }
  }
  MemoryDecoding(const MemoryDecoding&) = delete;
  MemoryDecoding& operator=(const MemoryDecoding&) = delete;

  [[nodiscard]] EFI_STATUS Status() const { return status_; }

 private:
  EFI_STATUS WriteCommand(UINT16 command) {
    UINT16 words[2] = {command, words_[1]};
    return pciIo_->Pci.Write(pciIo_, EfiPciIoWidthUint16, PCI_COMMAND_OFFSET, 2, words);
  }

  EFI_PCI_IO_PROTOCOL* pciIo_;
  EFI_STATUS status_ = EFI_SUCCESS;
  UINT16 words_[2] = {};  // command and status
  bool switched_ = false;
};

// ---- Controllers

EFI_STATUS ReadIds(EFI_PCI_IO_PROTOCOL* pciIo, ADAPTER_IDS& ids) {
  UINT16 words[2] = {};
  EFI_STATUS status = pciIo->Pci.Read(pciIo, EfiPciIoWidthUint16, PCI_VENDOR_ID_OFFSET, 2, words);
  if (EFI_ERROR(status)) {
    return status;
  }
  UINT16 subsystem[2] = {};
  status = pciIo->Pci.Read(pciIo, EfiPciIoWidthUint16, PCI_SUBSYSTEM_VENDOR_ID_OFFSET, 2, subsystem);
  ids = {words[0], words[1], subsystem[0], subsystem[1]};
  return status;
}

// Only an exhausted pool ends the pass: an error means that.
EFI_STATUS TakeController(EFI_HANDLE handle, ADAPTER_INVENTORY& inventory) {
  EFI_PCI_IO_PROTOCOL* pciIo = nullptr;
  ADAPTER_IDS ids;
  EFI_STATUS status = OpenOn(handle, pciIo);
  if (!EFI_ERROR(status)) {
    status = ReadIds(pciIo, ids);
  }
  if (EFI_ERROR(status)) {
    DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM().mPciIo->Pci.Read = %r\n", status);
    return EFI_SUCCESS;
  }
  UINTN row = 0;
  if (!FindSupportedAdapter(ids, row)) {
    return EFI_SUCCESS;
  }
  DebugPrint("Device Found in the EEPROM supported List!\n");
  DebugPrint("\n GET_MAC_ADDRESS_FROM_EEPROM() : *** FOUND I350 LOM/Kestrelton/NIC or X540 Adapter! ***\n");
  DebugPrint("VID = 0x%x   DID = 0x%x   SVID = 0x%x   SDID = 0x%x\n", ids.VendorId, ids.DeviceId, ids.SubsystemVendorId,
             ids.SubsystemId);
  const MemoryDecoding decoding(pciIo);
  if (EFI_ERROR(decoding.Status())) {
    return EFI_SUCCESS;
  }
  status = GetMacAddress(pciIo, EEPROMSupported_AdapterTable[row].LomType, row, inventory);
  if (EFI_ERROR(status)) {
    DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM().GetMacAddress Status = %r\n", status);
  }
  return status == EFI_OUT_OF_RESOURCES ? status : EFI_SUCCESS;
}

}  // namespace

EFI_STATUS GET_MAC_ADDRESS_FROM_EEPROM(ADAPTER_INVENTORY& inventory) {
  DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM().Entry\n");
  HandleBuffer functions;
  EFI_STATUS status = functions.Locate(ProtocolGuid<EFI_PCI_IO_PROTOCOL>);
  if (EFI_ERROR(status)) {
    DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM().LocateHandleBuffer = %r\n", status);
    return status;
  }
  DebugPrint("No of Handles = %x\n", functions.size());
  if (!inventory.Reserve(functions.size())) {
    return EFI_OUT_OF_RESOURCES;
  }
  for (EFI_HANDLE handle : functions) {
    status = TakeController(handle, inventory);
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM().Exit\n");
  return EFI_SUCCESS;
}

}  // namespace bds
