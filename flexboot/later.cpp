// The report of the actual boot order and the handling of stale policies, whose bodies are still to be built: each says
// in the log that it did nothing. docs/status.md lists them.
#include "flexboot/actual_order.h"
#include "flexboot/stale_policy.h"
#include "support/debug_print.h"

namespace bds {
namespace {

void SayThatNothingWasDone(const char* routine) { DebugPrint("%a:Not available yet\n", routine); }

}  // namespace

void GenerateReportStruct(const POLICY_TARGET_LIST&) { SayThatNothingWasDone("GenerateReportStruct"); }

VOID EFIAPI ExportActualOrderXML(EFI_EVENT, VOID*) { SayThatNothingWasDone("ExportActualOrderXML"); }

EFI_STATUS HandleStalePolicy() {
  SayThatNothingWasDone("HandleStalePolicy");
  return EFI_SUCCESS;
}

VOID EFIAPI HandleOneTimeBootStale(EFI_EVENT, VOID*) { SayThatNothingWasDone("HandleOneTimeBootStale"); }

VOID EFIAPI RackHandleStalePolicy(EFI_EVENT, VOID*) { SayThatNothingWasDone("RackHandleStalePolicy"); }

}  // namespace bds
