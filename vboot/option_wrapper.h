// What the policy engine knows of each option that it may tag.
#pragma once

#include "bootopt/boot_lists.h"
#include "flexboot/slot_ports.h"
#include "platform/pci_io.h"
#include "support/device_path.h"
#include "support/linked_list.h"

namespace bds {

// Lives for one run of the tagging step; the option outlives it.
struct VBOOT_OPTION_WRAPPER {
  VBOOT_OPTION_WRAPPER* Next = nullptr;
  VBOOT_OPTION_WRAPPER* Previous = nullptr;
  BOOT_OPTION* Option = nullptr;              // not owned
  const DevicePath* HandlePath = nullptr;     // of the option's device; null without one; not owned
  const DevicePath* BbsHandlePath = nullptr;  // of the handle that the CSM recorded for a legacy option; not owned
  PoolPtr<DevicePath> DiskDevicePath;         // of an option that begins with a partition: the whole disk; else null
  PoolPtr<char> DiskPathText;                 // the same as text, when it can be shown

  // Found on first need and kept, so that no further tag asks the firmware for it again.
  EFI_HANDLE PciHandle = nullptr;  // the option's PCI function (option_pci.h)
  EFI_PCI_IO_PROTOCOL* PciIo = nullptr;
  EFI_PCI_IO_PROTOCOL* ParentPciIo = nullptr;  // of the controller above it; null when there is none
  bool ParentKnown = false;
  bool LocationKnown = false;
  PCI_LOCATION Location;       // in the terms of the slot and port table; zeros when there is none
  PoolPtr<CHAR16> LoaderPath;  // the text of the option's first file path node

  UINT8 LoaderOfPair = 0;  // by pair of SAN loaders, a bit each: the option starts one of the two
};
using OPTION_WRAPPER_LIST = LIST_HEADER<VBOOT_OPTION_WRAPPER>;

// Prepares BootOptionList (idle group headers and duplicates go, legacy USB options move behind the others) and appends
// a wrapper for every option that stands for a device. Options for which the pool has no room get none.
void CreateOptionWrappers(OPTION_WRAPPER_LIST& wrappers);

}  // namespace bds
