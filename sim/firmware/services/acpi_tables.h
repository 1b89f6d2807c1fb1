// The ACPI tables of the simulated server (ACPI 6.4, chapter 5), as few as a valid set takes: RSDP, RSDT, XSDT, FADT
// with FACS and DSDT, MADT. They say what is there: the processors and the PM timer.
#pragma once

#include "sim/firmware/machine.h"

namespace sim {

inline constexpr EFI_GUID gEfiAcpi20TableGuid{
    0x8868E871, 0xE4F1, 0x11D3, {0xBC, 0x22, 0x00, 0x80, 0xC7, 0x3C, 0x88, 0x81}};

// Writes them into memory of their own and installs the configuration table.
EFI_STATUS InstallAcpiTables(Machine& machine, unsigned processors);

}  // namespace sim
