#include "bmc/copy_notes.h"

#include "bmc/ipmi_variables.h"
#include "support/variables.h"

namespace bds {

EFI_STATUS ReadNote(const CHAR16* note) {
  PoolBuffer content;
  return ReadVariable(note, kIpmiVariablesGuid, content);
}

bool LeaveNote(const CHAR16* note) {
  constexpr UINT8 kNoted = 1;
  return ReadNote(note) == EFI_NOT_FOUND && KeepIpmiVariable(note, AsBytes(kNoted)) && !EFI_ERROR(ReadNote(note));
}

void RemoveNote(const CHAR16* note) {
  if (ReadNote(note) != EFI_NOT_FOUND) {
    static_cast<void>(DeleteVariable(note, kIpmiVariablesGuid));
  }
}

}  // namespace bds
