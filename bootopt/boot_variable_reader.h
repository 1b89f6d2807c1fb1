// Reads Boot#### variables into one buffer that it keeps.
#pragma once

#include "support/byte_reader.h"
#include "support/variables.h"

namespace bds {

class BootVariableReader {
 public:
  // The variable of this number in place of what was read before. Under the lower-case name when the upper-case one
  // does not exist: some installers write it so. The status of ReadVariableIntoBuffer.
  [[nodiscard]] EFI_STATUS Read(UINT16 number);
  // What was read last, as long as the reader lives and reads nothing else.
  Bytes Image() const { return buffer_.Bytes(); }
  // Deletes the variable that was read last, under the name by which it was found. A store that refuses is asked once
  // more, without attributes, which deletes whatever attributes the variable has.
  EFI_STATUS Delete(UINT32 attributes = 0) const {
    const EFI_STATUS status = WriteVariable(name_, gEfiGlobalVariableGuid, attributes, {});
    return EFI_ERROR(status) && status != EFI_NOT_FOUND ? DeleteVariable(name_, gEfiGlobalVariableGuid) : status;
  }

 private:
  [[nodiscard]] EFI_STATUS ReadNamed();

  NumberedName name_{};
  PoolBuffer buffer_;
  UINTN capacity_ = 0;
};

}  // namespace bds
