// The BMC subsystem's steps of the control flow, in table order. None reports to its caller; failures are logged.
#pragma once

namespace bds {

// Writes the boot variables that the BMC keeps back into NVRAM, once.
void RestoreEfiBootVariablesFromBMC();
// Undoes the order that boot flags had put in force for one boot.
void RestoreBootorder();
// Reads the boot policy and the boot order table that the BMC holds.
void BootOrderTableEntryPoint();
// Records whether the server is in Zephan config mode.
void DetectZephanConfigMode();
// Switches the EFI boot options on when the BMC holds a boot policy.
void CheckZephan_EFIBootSupport();
// In strict group order: adds a placeholder device for each legacy group that the BMC names and that has no device.
void CheckForNoAssociateOption();
// Deletes or deactivates options that the management mode and the UEFI setting do not allow.
void RemoveNonSupportedBootOptions();
// Puts the groups of boot options into the order that the BMC wants.
void SetGroupBootOrder();
// Deletes options that no device of this boot claimed.
void RemoveOrphanOptions();
// Deletes options that stand for the same thing as another one.
void DeleteIdenticalBootOptions();
// Reads and acknowledges the BMC's boot flags and moves the option asked for to the front.
void SetIpmiBootOptionPriorities();
// Deactivates the placeholders' options and, out of UEFI boot mode, deletes UEFI options.
void InactivateLoadingPlaceholderOption();
// Sends the boot order table to the BMC.
void BuildBootOrderTable();
// Deletes the Boot#### variables that BootOrder does not name.
void RemoveBootxxxx();
// Copies the boot variables to the BMC; the first copy is followed by a warm reset.
void SaveEfiBootVaiablesToBMC();

}  // namespace bds
