#include "bmc/ipmi_variables.h"

#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {

bool KeepIpmiVariable(const CHAR16* name, Bytes data) {
  const EFI_STATUS status = WriteVariableFirmly(name, kIpmiVariablesGuid, kNonVolatileBoot, data);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing %s:%r\n", "KeepIpmiVariable", name, status);
  }
  return !EFI_ERROR(status);
}

}  // namespace bds
