// The report of the actual boot order: what every target of the policy came to, or, without a policy, the order that
// the firmware made. It is published for whoever asks and written to the BMC as ActualOrder.xml.
#pragma once

#include "flexboot/actual_order_record.h"
#include "flexboot/policy_targets.h"
#include "platform/boot_services.h"

namespace bds {

// Builds the report from the finished targets of the policy in force and installs it, which runs the notifications
// below before it returns. Nothing without a policy. Targets beyond the record's room are left out.
void GenerateReportStruct(const POLICY_TARGET_LIST& targets);

// Fills a zeroed record with the active options of BootOptionList, which it sorts by priority.
void GenerateNoConfigActualOrderXML(ACTUAL_BOOT_ORDER& record);
// The same as a report of its own, installed on a new handle; for a standalone server on which no policy decides.
void ReportOrderWithoutPolicy();

// Writes the report that was installed first on this boot to the BMC as ActualOrder.xml; runs whenever one is
// installed. A BMC that does not take the file leaves it as it was, or without its end; that is logged.
VOID EFIAPI ExportActualOrderXML(EFI_EVENT event, VOID* context);

}  // namespace bds
