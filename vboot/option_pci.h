// The PCI function of an option, found on first need and kept in its wrapper.
#pragma once

#include "vboot/tag_processor.h"

namespace bds {

// Finds the handle with PCI I/O for the path and opens its interface; both go into the wrapper. The handle; null when
// there is none.
EFI_HANDLE LocatePciIo(const DevicePath* path, VBOOT_OPTION_WRAPPER& wrapper);

// Gives back what the search by place keeps, when the options are tagged.
void ForgetPciPlaces();

// One read of the option's PCI configuration space. EFI_INVALID_PARAMETER: the option's path leads to no PCI function.
// EFI_DEVICE_ERROR, with a message: the function cannot be reached. Otherwise the read's status.
[[nodiscard]] EFI_STATUS ReadOptionPciConfig(VBOOT_OPTION_WRAPPER& wrapper, EFI_PCI_IO_PROTOCOL_WIDTH width,
                                             UINT32 offset, void* buffer, PoolPtr<char>& message);

}  // namespace bds
