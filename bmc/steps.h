// The BMC subsystem's steps of the control flow, in table order. None reports to its caller; failures are logged.
#pragma once

namespace bds {

// Writes the boot variables that the BMC keeps back into NVRAM, once.
void RestoreEfiBootVariablesFromBMC();
// Undoes the order that boot flags had put in force for one boot.
void RestoreBootorder();
// Reads the boot policy that the BMC holds; the boot order table is still to be built.
void BootOrderTableEntryPoint();
// Records whether the server is in Zephan config mode.
void DetectZephanConfigMode();
// Switches the EFI boot options on when the BMC holds a boot policy.
void CheckZephan_EFIBootSupport();
// Deletes or deactivates options that the management mode and the UEFI setting do not allow.
void RemoveNonSupportedBootOptions();
// Deletes options that no device of this boot claimed.
void RemoveOrphanOptions();
// Deletes options that stand for the same thing as another one.
void DeleteIdenticalBootOptions();
// Reads and acknowledges the BMC's boot flags and moves the option asked for to the front.
void SetIpmiBootOptionPriorities();
// Copies the boot variables to the BMC; the first copy is followed by a warm reset.
void SaveEfiBootVaiablesToBMC();

}  // namespace bds
