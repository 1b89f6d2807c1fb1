// The boot option subsystem's steps of the control flow, in table order. None reports to its caller.
#pragma once

#include "bootopt/boot_lists.h"

namespace bds {

void UpdateBootOptionVariables();
EFI_STATUS ReadBootOptions();
void UnmaskOrphanDevices();
EFI_STATUS CollectUsbBbsDevices();
void CollectBootDevices();
void FilterBootDeviceList();
void MatchBootOptionsToDevices();
void DeleteUnmatchedUefiHddBootDevices();
void CreateBootOptionsForNewBootDevices();
void PreProcessBootOptions();
void SetBootOptionPriorities();
void PostProcessBootOptions();
void ApplyOemBootOptionPolicy();
void MaskOrphanDevices();
void SaveLegacyDevOrder();
void SaveBootOptions();

// Gives every option its group key; called where no boot policy is in force.
void SetDefaultBootOptionTags();

}  // namespace bds
