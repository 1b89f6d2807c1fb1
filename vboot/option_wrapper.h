// What the policy engine knows of each option that it may tag.
#pragma once

#include "bootopt/boot_lists.h"
#include "platform/pci_io.h"
#include "support/device_path.h"
#include "support/linked_list.h"

namespace bds {

// Lives for one run of the tagging step; the option outlives it.
struct VBOOT_OPTION_WRAPPER {
  VBOOT_OPTION_WRAPPER* Next = nullptr;
  VBOOT_OPTION_WRAPPER* Previous = nullptr;
  BOOT_OPTION* Option = nullptr;   // not owned
  EFI_HANDLE PciHandle = nullptr;  // the option's PCI function; found on first need (option_pci.h)
  EFI_PCI_IO_PROTOCOL* PciIo = nullptr;
  PoolPtr<DevicePath> DiskDevicePath;  // of an option that begins with a partition: the whole disk; else null
  PoolPtr<char> DiskPathText;          // the same as text, when it can be shown
  UINT8 LoaderOfPair = 0;              // by pair of SAN loaders, a bit each: the option starts one of the two
};
using OPTION_WRAPPER_LIST = LIST_HEADER<VBOOT_OPTION_WRAPPER>;

// Prepares BootOptionList (idle group headers and duplicates go, legacy USB options move behind the others) and appends
// a wrapper for every option that stands for a device. Options for which the pool has no room get none.
void CreateOptionWrappers(OPTION_WRAPPER_LIST& wrappers);

}  // namespace bds
