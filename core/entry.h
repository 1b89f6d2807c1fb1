// The driver's entry point, as the firmware's image loader and the simulated server call it.
#pragma once

#include "platform/system_table.h"

// Starts every state record afresh, reads Setup, arranges the option ROM policy, names the firmware and installs the
// BDS architectural protocol; the status is that of the install. Nothing else happens until Entry is called.
extern "C" EFI_STATUS EFIAPI EfiMain(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);
