// What kind of device a BBS entry is, by its PCI class.
#pragma once

#include "platform/legacy_bios.h"
#include "platform/pci_config.h"

namespace bds {

// A disk at the board's SATA ports.
inline bool IsSataEntry(const BBS_TABLE& entry) {
  return entry.Class == PCI_CLASS_MASS_STORAGE && entry.SubClass == PCI_CLASS_MASS_STORAGE_SATADPA;
}

// A device on the USB bus, virtual media and SD card included.
inline bool IsUsbEntry(const BBS_TABLE& entry) {
  return entry.Class == PCI_CLASS_SERIAL && entry.SubClass == PCI_CLASS_SERIAL_USB;
}

}  // namespace bds
