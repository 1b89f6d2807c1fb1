// Three families of controllers do the same with different registers: a command with the word's address is written, a
// bit says when it is done, and the word stands in a data register.
#include "inventory/adapter_eeprom.h"

#include "support/debug_print.h"
#include "support/services.h"

namespace bds {
namespace {

constexpr UINT8 kBar = 0;
constexpr UINT8 kPorts = 4;

// A family's registers, and where its EEPROM or NVM has the addresses.
struct EEPROM_DESCRIPTION {
  UINT64 PortRegister;  // which port the function drives,
  UINT8 PortShift;      // in two bits from here
  UINT64 Control;
  UINT32 WordMask;  // of a command's word address
  UINT8 WordShift;
  UINT32 Start;  // bit of the command
  UINT32 Done;   // bit of the control register
  UINT64 Data;
  EFI_PCI_IO_PROTOCOL_WIDTH DataWidth;
  UINT8 DataShift;       // of the word in the data register
  UINT16 Words[kPorts];  // by port: the address's first word, or the word that points to it
};

constexpr EEPROM_DESCRIPTION kI350{
    .PortRegister = 0x8,
    .PortShift = 2,
    .Control = 0x14,
    .WordMask = 0x7FF,
    .WordShift = 2,
    .Start = 1U << 0,
    .Done = 1U << 1,
    .Data = 0x16,
    .DataWidth = EfiPciIoWidthUint16,
    .DataShift = 0,
    .Words = {0x00, 0x80, 0xC0, 0x100},
};
constexpr EEPROM_DESCRIPTION kX540{
    .PortRegister = 0x8,
    .PortShift = 2,
    .Control = 0x10014,
    .WordMask = 0x7FF,
    .WordShift = 2,
    .Start = 1U << 0,
    .Done = 1U << 1,
    .Data = 0x10016,
    .DataWidth = EfiPciIoWidthUint16,
    .DataShift = 0,
    .Words = {9, 10, 10, 10},
};
constexpr EEPROM_DESCRIPTION kX710{
    .PortRegister = 0x3F100,
    .PortShift = 0,
    .Control = 0xB6110,
    .WordMask = 0x7FFF,
    .WordShift = 14,
    .Start = 1U << 30,
    .Done = 1U << 31,
    .Data = 0xB6114,
    .DataWidth = EfiPciIoWidthUint32,
    .DataShift = 16,
    .Words = {0x48, 0x48, 0x48, 0x48},
};
constexpr UINT16 kX710AddressSection = 24;  // from the word pointed to

// Delays of PollMem, in units of 100 ns, and the pause between two looks at a control register, in microseconds.
constexpr UINT64 kAddressPollDelay = 200;
constexpr UINT64 kWordPollDelay = 100;
constexpr UINTN kLookPause = 1000;
constexpr UINTN kLooks = 1000;

// ---- The accesses that all families share

UINT32 Command(const EEPROM_DESCRIPTION& eeprom, UINT32 word) {
  return (word & eeprom.WordMask) << eeprom.WordShift | eeprom.Start;
}

EFI_STATUS WriteControl(EFI_PCI_IO_PROTOCOL* pciIo, const EEPROM_DESCRIPTION& eeprom, UINT32 command) {
  return pciIo->Mem.Write(pciIo, EfiPciIoWidthUint32, kBar, eeprom.Control, 1, &command);
}

EFI_STATUS ReadRegister(EFI_PCI_IO_PROTOCOL* pciIo, UINT64 offset, UINT32& value) {
  return pciIo->Mem.Read(pciIo, EfiPciIoWidthUint32, kBar, offset, 1, &value);
}

EFI_STATUS PollDone(EFI_PCI_IO_PROTOCOL* pciIo, const EEPROM_DESCRIPTION& eeprom, UINT64 delay, UINT64& result) {
  return pciIo->PollMem(pciIo, EfiPciIoWidthUint32, kBar, eeprom.Control, eeprom.Done, eeprom.Done, delay, &result);
}

EFI_STATUS ReadData(EFI_PCI_IO_PROTOCOL* pciIo, const EEPROM_DESCRIPTION& eeprom, UINT16& word) {
  UINT32 data = 0;  // a 16-bit read fills its low half
  const EFI_STATUS status = pciIo->Mem.Read(pciIo, eeprom.DataWidth, kBar, eeprom.Data, 1, &data);
  if (!EFI_ERROR(status)) {
    word = static_cast<UINT16>(data >> eeprom.DataShift);
  }
  return status;
}

// ---- Addresses, by family

void ReadI350Address(EFI_PCI_IO_PROTOCOL* pciIo, UINT8, PORT_ADDRESS& address) {
  for (UINT32 k = 0; k < 3; ++k) {
    const UINT32 command = Command(kI350, kI350.Words[address.Port] + k);
    DebugPrint("GetMacAddress().Command = %x\n", command);
    EFI_STATUS status = WriteControl(pciIo, kI350, command);
    if (EFI_ERROR(status)) {
      DebugPrint("ERROR: GetMacAddress().PciIo->Mem.Write(I350_EERD:Command) = %r\n", status);
      return;
    }
    UINT64 result = 0;
    status = PollDone(pciIo, kI350, kAddressPollDelay, result);
    if (EFI_ERROR(status)) {
      DebugPrint("ERROR: GetMacAddress().PciIo->PollMem = %r\n", status);
      return;
    }
    status = ReadData(pciIo, kI350, address.Words[k]);
    if (EFI_ERROR(status)) {
      DebugPrint("ERROR: GetMacAddress().PciIo->Mem.Read = %r\n", status);
      return;
    }
    DebugPrint("GetMacAddress().MacAddress[%d] = %x\n", k, address.Words[k]);
  }
}

void ReadX540Address(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, PORT_ADDRESS& address) {
  DebugPrint("Read Read x520/x540/x550 MAC Address :\n");
  DebugPrint(address.Port == 0 ? FormatString<>("ReadEEProm:  Get Pointer to Lom 0's MAC Address \n")
                               : FormatString<>("ReadEEProm:  Get Pointer to Lom 1's MAC Address \n"));
  UINT16 pointer = 0;
  EFI_STATUS status = ReadEEProm(pciIo, lomType, kX540.Words[address.Port], pointer);
  DebugPrint("ReadIntelEEProm Status = %r  MacAddressPointer = 0x%04x\n", status, pointer);
  if (EFI_ERROR(status)) {
    DebugPrint("ReadEEProm:  Read Pointer to Mac Address  returned an Error!! \n");
    return;
  }
  DebugPrint("ReadEEProm returned:   X540_LAN_CORE_X_POINTER_ADDRESS = 0x%04x \n", pointer);
  constexpr FormatString<EFI_STATUS, UINT16> kWordRead[] = {
      "Status = %r  MacAddress[0] = %x \n", "Status = %r  MacAddress[1] = %x \n", "Status = %r  MacAddress[2] = %x \n"};
  for (UINT16 k = 0; k < 3; ++k) {
    status = ReadEEProm(pciIo, lomType, static_cast<UINT16>(pointer + 1 + k), address.Words[k]);
    DebugPrint(kWordRead[k], status, address.Words[k]);
  }
}

EFI_STATUS ReadX710Words(EFI_PCI_IO_PROTOCOL* pciIo, PORT_ADDRESS& address) {
  UINT16 pointer = 0;
  EFI_STATUS status = ReadXl710EEProm(pciIo, kX710.Words[address.Port], pointer);
  if (EFI_ERROR(status)) {
    return status;
  }
  const auto section = static_cast<UINT16>(pointer + kX710AddressSection);
  UINT16 relative = 0;
  status = ReadXl710EEProm(pciIo, section, relative);
  DebugPrint("Relative Address Status = %r  Address = 0x%04x\n", status, relative);
  if (EFI_ERROR(status)) {
    return status;
  }
  const auto offset = static_cast<UINT16>(section + 4 * address.Port + relative + 1);
  DebugPrint("MacAddress Offset:   = 0x%04x \n", offset);
  constexpr FormatString<UINT16> kWordRead[] = {"MacAddress[0] = %x \n", "MacAddress[1] = %x \n",
                                                "MacAddress[2] = %x \n"};
  for (UINT16 k = 0; k < 3; ++k) {
    status = ReadXl710EEProm(pciIo, static_cast<UINT16>(offset + k), address.Words[k]);
    if (EFI_ERROR(status)) {
      return status;
    }
    DebugPrint(kWordRead[k], address.Words[k]);
  }
  return EFI_SUCCESS;
}

void ReadX710Address(EFI_PCI_IO_PROTOCOL* pciIo, UINT8, PORT_ADDRESS& address) {
  DebugPrint("Read x710/xl710 MAC Address :\n");
  const EFI_STATUS status = ReadX710Words(pciIo, address);
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR: ReadXl710EEProm = %r\n", status);
  }
}

// ---- LomTypes

struct LOM_TYPE_ROW {
  const CHAR8* Name;
  const EEPROM_DESCRIPTION* Eeprom;  // null: nothing is known of it
  void (*ReadAddress)(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, PORT_ADDRESS& address);  // null: it is not read
  const FormatString<EFI_STATUS, UINT8>* CommandFailed;  // of ReadEEProm, null: it does not serve the type
};
constexpr FormatString<EFI_STATUS, UINT8> kI350Failed{
    "ReadEEProm().PciIo->Mem.Write(I350_EERD:Command) = %r    LomType = %d\n"};
constexpr FormatString<EFI_STATUS, UINT8> kX540Failed{
    "ReadEEProm().PciIo->Mem.Write(x540_EERD:Command) = %r    LomType = %d\n"};
constexpr LOM_TYPE_ROW kLomTypes[LomTypeCount] = {
    {"None", nullptr, nullptr, nullptr},
    {"Intel_i350_Lom", &kI350, ReadI350Address, &kI350Failed},
    {"Intel_i350_Nic", &kI350, ReadI350Address, &kI350Failed},
    {"Intel_Kestrelton", &kI350, ReadI350Address, &kI350Failed},
    {"Intel_x520_Lom", &kX540, nullptr, nullptr},
    {"Intel_x520_Nic", &kX540, ReadX540Address, &kX540Failed},
    {"Intel_x540_Lom", &kX540, nullptr, nullptr},
    {"Intel_x540_Nic", &kX540, ReadX540Address, &kX540Failed},
    {"Intel_x550_Nic", &kX540, ReadX540Address, &kX540Failed},
    {"Intel_x710_Nic", &kX710, ReadX710Address, nullptr},
    {"Intel_x710_4P_Nic", &kX710, ReadX710Address, nullptr},
    {"Intel_xl710_Nic", &kX710, ReadX710Address, nullptr},
};
constexpr LOM_TYPE_ROW kUnknownLomType{"unknown", nullptr, nullptr, nullptr};

const LOM_TYPE_ROW& RowOf(UINT8 lomType) { return lomType < LomTypeCount ? kLomTypes[lomType] : kUnknownLomType; }

}  // namespace

const CHAR8* LomTypeName(UINT8 lomType) { return RowOf(lomType).Name; }

EFI_STATUS ReadPortAddress(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, PORT_ADDRESS& address) {
  const LOM_TYPE_ROW& row = RowOf(lomType);
  if (row.Eeprom == nullptr) {
    return EFI_NOT_FOUND;
  }
  UINT32 ports = 0;
  const EFI_STATUS status = ReadRegister(pciIo, row.Eeprom->PortRegister, ports);
  if (EFI_ERROR(status)) {
    DebugPrint("GetMacAddress().PciIo->Mem.Read(I350_DEV_STATUS) = %r\n", status);
    return EFI_NOT_FOUND;
  }
  address.Port = static_cast<UINT8>(ports >> row.Eeprom->PortShift & (kPorts - 1));
  DebugPrint("GetMacAddress().LanPort = %d\n", address.Port);
  if (row.ReadAddress != nullptr) {
    row.ReadAddress(pciIo, lomType, address);
  }
  if ((address.Words[0] & address.Words[1] & address.Words[2]) == 0xFFFF) {
    DebugPrint("ERROR: GetMacAddress().EFI_NOT_FOUND\n");
    return EFI_NOT_FOUND;
  }
  return EFI_SUCCESS;
}

EFI_STATUS ReadEEProm(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, UINT16 word, UINT16& value) {
  const LOM_TYPE_ROW& row = RowOf(lomType);
  if (row.CommandFailed == nullptr) {
    DebugPrint("ReadEEProm:  Unable to read EEPROM. Invalid LomType = %d%x\n", lomType, lomType);
    return EFI_NOT_FOUND;
  }
  EFI_STATUS status = WriteControl(pciIo, *row.Eeprom, Command(*row.Eeprom, word));
  if (EFI_ERROR(status)) {
    DebugPrint(*row.CommandFailed, status, lomType);
    return EFI_NOT_FOUND;
  }
  UINT64 result = 0;
  status = PollDone(pciIo, *row.Eeprom, kWordPollDelay, result);
  if (EFI_ERROR(status)) {
    DebugPrint("ReadEEProm:  PollMem - Done bit did not go high.  Result = 0x%02x\n", result);
    return EFI_NOT_FOUND;
  }
  // The second reading is the one that counts: the register may still have been taking its value at the first.
  UINT16 read = 0;
  if (EFI_ERROR(ReadData(pciIo, *row.Eeprom, read))) {
    DebugPrint("ReadEEProm:  Read Data Failed   Result = 0x%02x\n", result);
    return EFI_NOT_FOUND;
  }
  if (EFI_ERROR(ReadData(pciIo, *row.Eeprom, read))) {
    DebugPrint("ReadEEProm:  2nd read Read Data Failed   Result = 0x%02x\n", result);
    return EFI_NOT_FOUND;
  }
  value = read;
  DebugPrint("ReadEEProm:  Read Success  Address 0x%04x = 0x%04x \n", word, value);
  return EFI_SUCCESS;
}

EFI_STATUS ReadXl710EEProm(EFI_PCI_IO_PROTOCOL* pciIo, UINT16 word, UINT16& value) {
  const UINT32 command = Command(kX710, word);
  DebugPrint("ReadXl710EEProm with Address : %x, Command : %x\n", word, command);
  EFI_STATUS status = WriteControl(pciIo, kX710, command);
  UINT32 control = 0;
  for (UINTN looks = 0; !EFI_ERROR(status); ++looks) {
    status = ReadRegister(pciIo, kX710.Control, control);
    if (EFI_ERROR(status) || (control & kX710.Done) != 0) {
      break;
    }
    if (looks == kLooks) {
      return EFI_NOT_FOUND;
    }
    BootServices()->Stall(kLookPause);
  }
  if (EFI_ERROR(status)) {
    return status;
  }
  status = ReadData(pciIo, kX710, value);
  DebugPrint("Read Status : %x Value : %x\n", status, value);
  return status;
}

}  // namespace bds
