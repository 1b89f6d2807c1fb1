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
  // Deletes the variable that was read last, under the name by which it was found.
  EFI_STATUS Delete() const { return DeleteVariableFirmly(name_, gEfiGlobalVariableGuid); }

 private:
  [[nodiscard]] EFI_STATUS ReadNamed();

  NumberedName name_{};
  PoolBuffer buffer_;
  UINTN capacity_ = 0;
};

}  // namespace bds
