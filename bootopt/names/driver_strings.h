// The driver's own texts: the words that names are made of. One table is the source of the string package, too.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// String ids of the HII package; the first string of a package has id 1.
enum class DriverString : UINT16 {
  LanguageName = 1,
  BuiltInShell,
  RemovableDrive,
  HardDrive,
  OpticalDrive,
  PcmciaDevice,
  Usb,
  NetworkCard,
  BevDevice,
  UnknownDevice,
  Atapi,
  Scsi,
  UefiPrefix,
  Partition,
};

// In the order of the ids.
inline constexpr const char* kDriverStrings[] = {
    "English", "Built-in EFI Shell", "Removable Drive", "Hard Drive",     "CD/DVD Drive", "PCMCIA Device",
    "USB",     "Network Card",       "BEV Device",      "Unknown Device", "ATAPI",        "SCSI",
    "UEFI: ",  "Partition"};
static_assert(sizeof(kDriverStrings) / sizeof(kDriverStrings[0]) == static_cast<UINTN>(DriverString::Partition));

}  // namespace bds
