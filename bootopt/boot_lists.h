// The option and device lists and the operations on them. Both lists live for the whole run.
#pragma once

#include "bootopt/boot_option.h"
#include "bootopt/groups.h"
#include "bootopt/unloaded_options.h"
#include "support/linked_list.h"

namespace bds {

using BOOT_OPTION_LIST = LIST_HEADER<BOOT_OPTION>;
using BOOT_DEVICE_LIST = LIST_HEADER<BOOT_DEVICE>;

// Everything of the boot option subsystem that outlives a routine.
struct BOOT_OPTION_STATE {
  BOOT_OPTION_LIST OptionList;  // emptied by UpdateBootOptionVariables, filled by loading and new options
  BOOT_DEVICE_LIST DeviceList;  // emptied likewise, filled by collection, drained by matching
  void* HiiHandle = nullptr;    // the driver's string package list; set by UpdateBootOptionVariables, else null
  GROUP_ORDER GroupOrder = kDefaultGroupOrder;  // the groups' order on this boot; the BMC's wishes change it
  UNLOADED_OPTIONS Unloaded;                    // filled by ReadBootOptions, used up by SaveBootOptions
  bool OrderNotSaved = false;                   // the order of this boot did not reach NVRAM; set by SaveBootOptions
  bool OrphansUncertain = false;  // memory ran out before the matching's end: an orphan's device may be present
};
extern constinit BOOT_OPTION_STATE gBootOptions;

inline constinit BOOT_OPTION_LIST& BootOptionList = gBootOptions.OptionList;
inline constinit BOOT_DEVICE_LIST& BootDeviceList = gBootOptions.DeviceList;

// Appends a record with the creation values; null when the pool is exhausted.
[[nodiscard]] BOOT_OPTION* CreateBootOption(BOOT_OPTION_LIST& list);
// Unlinks the option and frees it with all that it owns; its optional data only when OptionalDataSize is not 0.
void DeleteBootOption(BOOT_OPTION_LIST& list, BOOT_OPTION* option);
// Mode 1: deletes the variable Boot#### too, when the option is numbered and no other one was loaded from it. Any other
// mode: nothing.
void DeleteBootOptionAndVariable(BOOT_OPTION_LIST& list, BOOT_OPTION* option, UINTN mode);

// Appends a device and, when it has a handle, names it. Null when the entry lies below index 25 and has no handle in
// IBV1 (the CSM filled it for itself), or when the pool is exhausted.
BOOT_DEVICE* CreateBootDevice(BOOT_DEVICE_LIST& list, EFI_HANDLE deviceHandle, UINT16 bbsIndex, BBS_TABLE* bbsEntry);
void DeleteBootDevice(BOOT_DEVICE_LIST& list, BOOT_DEVICE* device);

// The act of matching: the option takes the device's handle, BBS index and BBS entry.
void UpdateBootOptionWithBootDeviceInfo(BOOT_OPTION& option, const BOOT_DEVICE& device);

// Negative, zero or positive as a sorts before, with or behind b.
using OptionComparator = INTN (*)(const BOOT_OPTION& a, const BOOT_OPTION& b);
// Tag; at equal tags the group header first; then priority.
[[nodiscard]] INTN CompareByTag(const BOOT_OPTION& a, const BOOT_OPTION& b);
// Priority; then number; then the group header first.
[[nodiscard]] INTN CompareByPriority(const BOOT_OPTION& a, const BOOT_OPTION& b);
// Stable bottom-up merge sort.
void SortList(BOOT_OPTION_LIST& list, OptionComparator compare);

}  // namespace bds
