// What the policy engine has to say of each target: entries of the target's report, shown in the log, kept as text for
// the BMC, and read by the report of the actual boot order.
#pragma once

#include "platform/uefi_base.h"
#include "support/linked_list.h"

namespace bds {

struct POLICY_TARGET;
using POLICY_TARGET_LIST = LIST_HEADER<POLICY_TARGET>;

// Of a report entry; the numbers are those that readers of the report know.
enum class ReportCategory : UINT32 {
  TagError = 0,         // a tag processor failed
  NoMatch = 1,          // the target selected nothing
  MultipleMatches = 2,  // a target for one option selected several
  TargetError = 3,
  IgnoresPolicy = 4,  // an option that no target took
  OptionName = 5,     // an option selected, or what stands in its place
  TagName = 10,       // no processor knows the tag
  GeneralData = 11,   // a processor had something to say
};

// Where the option of an "Option name" entry sits.
struct REPORT_DEVICE_INFO {
  REPORT_DEVICE_INFO* Next = nullptr;
  REPORT_DEVICE_INFO* Previous = nullptr;
  PoolPtr<char> DeviceClass;  // class word
  UINT16 SlotId = 0;          // of the slot and port table, else 0
  UINT16 PortId = 0;
  PoolPtr<char> SubType;  // sub-type word
};

struct POLICY_REPORT_ENTRY {
  POLICY_REPORT_ENTRY* Next = nullptr;
  POLICY_REPORT_ENTRY* Previous = nullptr;
  ReportCategory Category = ReportCategory::TagError;
  PoolPtr<char> Text;                          // null when the pool was exhausted
  LIST_HEADER<REPORT_DEVICE_INFO> DeviceInfo;  // of an entry that describes an option
};
using POLICY_REPORT_LIST = LIST_HEADER<POLICY_REPORT_ENTRY>;

// Appends an entry with a copy of the text; null when the pool is exhausted.
POLICY_REPORT_ENTRY* AddReportEntry(POLICY_TARGET& target, ReportCategory category, const char* text);
// Appends a device record with copies of the words; null when the pool is exhausted.
REPORT_DEVICE_INFO* AddReportDeviceInfo(POLICY_REPORT_ENTRY& entry, const char* deviceClass, UINT16 slot, UINT16 port,
                                        const char* subType);
// Frees the entries of a report with what they own.
void FreeReport(POLICY_REPORT_LIST& report);

// Shows every target's report in the log.
void DumpReportData(const POLICY_TARGET_LIST& targets);
// The same as one text. length is without the NUL. EFI_OUT_OF_RESOURCES, and no text, when it cannot be made whole.
[[nodiscard]] EFI_STATUS SerializeReportData(const POLICY_TARGET_LIST& targets, PoolPtr<char>& text, UINTN& length);

}  // namespace bds
