#include "vboot/report_data.h"

#include "flexboot/policy_targets.h"
#include "support/debug_print.h"
#include "support/text.h"

namespace bds {
namespace {

struct CATEGORY_LABELS {
  ReportCategory Category;
  const char* Dumped;
  const char* Serialized;
};
constexpr CATEGORY_LABELS kLabels[] = {
    {ReportCategory::TagError, "Tag error  -- ", "Tag error  - "},
    {ReportCategory::NoMatch, "no match  -- ", "no match  - "},
    {ReportCategory::MultipleMatches, "multiple matches  -- ", "multiple matches  - "},
    {ReportCategory::TargetError, "General target error  -- ", "General target error  - "},
    {ReportCategory::IgnoresPolicy, "Target ignores policy  -- ", "Target ignores policy  - "},
    {ReportCategory::OptionName, "Option name -- ", "Option name - "},
    {ReportCategory::TagName, "Tag Name Issue -- ", "Tag Name Issue - "},
    {ReportCategory::GeneralData, "General data -- ", "General data - "},
};
constexpr CATEGORY_LABELS kUnknownLabels{{}, "Unknown data -- ", "Unknown data - "};

const CATEGORY_LABELS& LabelsOf(ReportCategory category) {
  for (const CATEGORY_LABELS& labels : kLabels) {
    if (labels.Category == category) {
      return labels;
    }
  }
  return kUnknownLabels;
}

constexpr char kTargetHeader[] = "*********\nTarget name: ";
constexpr char kSourceName[] = "VBoot/VBoot";

// Writes texts one behind the other into a buffer of known size.
class SerialWriter {
 public:
  explicit SerialWriter(std::span<char> buffer) : rest_(buffer) {}

  // Writes text and what ends it. False, and told in the log, when nothing was written or it does not fit.
  template <UINTN N>
  bool Write(const char* text, const char (&end)[N], int line) {
    const UINTN length = TextLength(text) + N - 1;
    if (length == 0) {
      DebugPrint("ERROR: no Sprintf_s output (in %a line %d)\n", kSourceName, line);
      return false;
    }
    if (length >= rest_.size()) {  // the NUL needs its place
      DebugPrint("ERROR: Will run out of buffer (in %a line %d)\n", kSourceName, line);
      return false;
    }
    FormatAscii(rest_, "%s%s", text != nullptr ? text : "", end);
    rest_ = rest_.subspan(length);
    return true;
  }

 private:
  std::span<char> rest_;
};

bool Serialize(const POLICY_TARGET_LIST& targets, SerialWriter& writer) {
  for (const POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
    if (!writer.Write(kTargetHeader, "", __LINE__) || !writer.Write(target->Name, "\n", __LINE__)) {
      return false;
    }
    for (const POLICY_REPORT_ENTRY* entry = target->ReportList.First; entry != nullptr; entry = entry->Next) {
      if (!writer.Write(LabelsOf(entry->Category).Serialized, "", __LINE__) ||
          !writer.Write(entry->Text.get(), "\n", __LINE__)) {
        return false;
      }
    }
  }
  return true;
}

UINTN SerializedLength(const POLICY_TARGET_LIST& targets) {
  UINTN length = 0;
  for (const POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
    length += TextLength(kTargetHeader) + TextLength(target->Name) + 1;
    for (const POLICY_REPORT_ENTRY* entry = target->ReportList.First; entry != nullptr; entry = entry->Next) {
      length += TextLength(LabelsOf(entry->Category).Serialized) + TextLength(entry->Text.get()) + 1;
    }
  }
  return length;
}

}  // namespace

POLICY_REPORT_ENTRY* AddReportEntry(POLICY_TARGET& target, ReportCategory category, const char* text) {
  POLICY_REPORT_ENTRY* entry = AppendNew(target.ReportList);
  if (entry != nullptr) {
    entry->Category = category;
    entry->Text = CopyText(text, TextLength(text));
  }
  return entry;
}

REPORT_DEVICE_INFO* AddReportDeviceInfo(POLICY_REPORT_ENTRY& entry, const char* deviceClass, UINT16 slot, UINT16 port,
                                        const char* subType) {
  REPORT_DEVICE_INFO* info = AppendNew(entry.DeviceInfo);
  if (info != nullptr) {
    info->DeviceClass = CopyText(deviceClass, TextLength(deviceClass));
    info->SlotId = slot;
    info->PortId = port;
    info->SubType = CopyText(subType, TextLength(subType));
  }
  return info;
}

void FreeReport(POLICY_REPORT_LIST& report) {
  for (POLICY_REPORT_ENTRY* entry = report.First; entry != nullptr; entry = entry->Next) {
    RemoveAll(entry->DeviceInfo);
  }
  RemoveAll(report);
}

void DumpReportData(const POLICY_TARGET_LIST& targets) {
  for (const POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
    DebugPrint("\nTarget %a\n", target->Name);
    for (const POLICY_REPORT_ENTRY* entry = target->ReportList.First; entry != nullptr; entry = entry->Next) {
      DebugPrintText(LabelsOf(entry->Category).Dumped);
      if (entry->Text) {
        DebugPrint("%a\n", entry->Text.get());
      } else {
        DebugPrint("No string data\n");
      }
    }
  }
}

EFI_STATUS SerializeReportData(const POLICY_TARGET_LIST& targets, PoolPtr<char>& text, UINTN& length) {
  length = SerializedLength(targets);
  text = AllocateArray<char>(length + 1);
  if (!text) {
    return EFI_OUT_OF_RESOURCES;
  }
  text[0] = 0;
  SerialWriter writer({text.get(), length + 1});
  if (!Serialize(targets, writer)) {
    text.reset();
    return EFI_OUT_OF_RESOURCES;
  }
  return EFI_SUCCESS;
}

}  // namespace bds
