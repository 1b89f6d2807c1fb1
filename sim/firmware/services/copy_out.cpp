// See copy_out.h.
#include "sim/firmware/services/copy_out.h"

#include <cstring>

namespace sim {

EFI_STATUS CopyOut(const void* data, std::size_t needed, UINTN* size, void* buffer) {
  const UINTN room = *size;
  *size = needed;
  if (room < needed) {
    return EFI_BUFFER_TOO_SMALL;
  }
  if (buffer == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  std::memcpy(buffer, data, needed);
  return EFI_SUCCESS;
}

}  // namespace sim
