// The standard's way to return data of unknown size: the needed size always, the data when there is room.
#pragma once

#include <cstddef>

#include "platform/uefi_base.h"

namespace sim {

// Sets *size to `needed`. EFI_BUFFER_TOO_SMALL when it was less, EFI_INVALID_PARAMETER when there is room but no
// buffer.
EFI_STATUS CopyOut(const void* data, std::size_t needed, UINTN* size, void* buffer);

}  // namespace sim
