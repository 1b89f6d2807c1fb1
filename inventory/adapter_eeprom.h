// Words of a network controller's EEPROM or NVM, read through registers behind its first base address register. Memory
// decoding has to be on.
#pragma once

#include "inventory/adapter_table.h"
#include "platform/pci_io.h"

namespace bds {

// What a controller's EEPROM or NVM says of the port that the function drives.
struct PORT_ADDRESS {
  UINT8 Port = 0;                              // from 0
  UINT16 Words[3] = {0xFFFF, 0xFFFF, 0xFFFF};  // the address, low byte first; 0xFFFF: not read
};

// The name of a LomType in the log.
[[nodiscard]] const CHAR8* LomTypeName(UINT8 lomType);

// Reads port and address. EFI_NOT_FOUND when the port is not told or no word of the address was read; an address of
// which only some words were read is one too.
[[nodiscard]] EFI_STATUS ReadPortAddress(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, PORT_ADDRESS& address);

// One word of an EEPROM that answers through the EERD register. value changes on success only. EFI_NOT_FOUND for a
// failed access, and for a LomType that has no such register.
[[nodiscard]] EFI_STATUS ReadEEProm(EFI_PCI_IO_PROTOCOL* pciIo, UINT8 lomType, UINT16 word, UINT16& value);

// One word of an NVM that answers through its shadow RAM. EFI_NOT_FOUND when it is not done within a second; otherwise
// the access's status. value changes on success only.
[[nodiscard]] EFI_STATUS ReadXl710EEProm(EFI_PCI_IO_PROTOCOL* pciIo, UINT16 word, UINT16& value);

}  // namespace bds
