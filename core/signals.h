// Telling the platform where the boot stands.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Installs a null interface on a new handle and uninstalls it at once, so that every listener for the GUID runs.
void SignalProtocolEvent(const EFI_GUID& guid);

// Reports a progress code of this value, without data, when the status code protocol is there.
void ReportProgressCode(UINT32 value);

}  // namespace bds
