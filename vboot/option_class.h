// What kind of device an option stands for, in the words of the report.
#pragma once

#include "bootopt/boot_option.h"
#include "flexboot/policy_targets.h"

namespace bds {

// The class word of an option: "EFI", or what its BBS entry is; empty for a legacy device of another type.
[[nodiscard]] const char* ClassifyOption(const BOOT_OPTION& option);
// The sub-type word: "N/A" except for USB devices and virtual media.
[[nodiscard]] const char* GetOptionSubType(const BOOT_OPTION& option, const char* classWord);
// Which class words come with a sub-type, and which with a slot.
[[nodiscard]] bool HasSubType(const char* classWord);
[[nodiscard]] bool SitsInASlot(const char* classWord);
// Slot and port of the PCI function in the slot and port table; 0 and 0 when it is not there.
void LookupSlotPort(UINT32 bus, UINT32 device, UINT32 function, UINT16& slot, UINT16& port);

// The option's name in the report; null when the pool is exhausted.
[[nodiscard]] PoolPtr<char> ReportName(const BOOT_OPTION& option);
// Appends an entry with the option's report name, its class and its place.
void AddOptionToReport(POLICY_TARGET& target, const BOOT_OPTION& option);

}  // namespace bds
