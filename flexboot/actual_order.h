// The report of the actual boot order: what every target of the policy came to, published for whoever asks and written
// to the BMC.
#pragma once

#include "flexboot/policy_targets.h"
#include "platform/boot_services.h"

namespace bds {

// Builds the report from the finished targets and installs it, which runs the notifications below.
void GenerateReportStruct(const POLICY_TARGET_LIST& targets);

// Writes the report to the BMC as ActualOrder.xml; runs when a report is installed.
VOID EFIAPI ExportActualOrderXML(EFI_EVENT event, VOID* context);

}  // namespace bds
