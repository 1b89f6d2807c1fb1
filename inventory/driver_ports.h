// Ports of which the network drivers tell, through the network interface identifier protocol and its first revision.
#pragma once

#include "inventory/interface_records.h"
#include "support/protocols.h"

namespace bds {

// The address in the handle's device path, six bytes of that path. EFI_NOT_FOUND: it has none before its end.
// EFI_DEVICE_ERROR: the handle has no path.
[[nodiscard]] EFI_STATUS ObtainMacAddressFromNiiHandle(EFI_HANDLE handle, const UINT8*& mac);

// A record for each port of the current protocol that lies in a slot whose adapter is not skipped.
void RecordDriverPorts(const HandleBuffer& handles, SlotEntries slots, INTERFACE_RECORDS& records);
// Ports of the first revision are told in the log alone.
void LogOldDriverPorts(const HandleBuffer& handles, SlotEntries slots);

}  // namespace bds
