// The report's way to the BMC: the record as an XML document, the debug text behind it as a comment.
#include "bmc/bt_file.h"
#include "bmc/management_mode.h"
#include "flexboot/actual_order.h"
#include "flexboot/policy_format.h"
#include "flexboot/report_text.h"
#include "flexboot/slot_ports.h"
#include "flexboot/xml_cursor.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/setup.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kExport[] = "ExportActualOrderXML";
constexpr char kReportFile[] = "ActualOrder.xml";
constexpr char kNonPolicy[] = "NonPolicyTarget";
constexpr UINTN kTries = 2;

// How the server is managed decides what its readers get; another mode than these two gets what both have.
struct READERS {
  bool Managed;
  bool Standalone;
};

const char* FirmwareModeText() {
  SetupVariable setup;
  return !EFI_ERROR(ReadSetup(setup)) && setup.At(kSetupUefiMode) != 0 ? "Uefi" : "Legacy";
}

void AppendHeader(GrowingText& text, ACTUAL_BOOT_ORDER& record, const READERS& readers) {
  AppendGroupTag(text, "<ActualBootOrderHeader");
  if (readers.Managed) {
    AppendLeaf(text, "<Version", FieldText(record.Version));
    AppendLeaf(text, "<ServiceProfile", FieldText(record.ServiceProfile));
    AppendLeaf(text, "<OverallErrorCode", record.OverallErrorCode);
    AppendLeaf(text, "<UniqueId", FieldText(record.UniqueId));
  }
  AppendLeaf(text, "<TotalActualTargets", UINT64{record.TotalActualTargets});
  if (readers.Standalone) {
    SetField(record.BootMode, FirmwareModeText());
    AppendLeaf(text, "<BootMode", FieldText(record.BootMode));
    AppendLeaf(text, "<LastUpdate", FieldText(record.LastUpdate));
  }
  AppendGroupTag(text, "</ActualBootOrderHeader");
}

const char* TypeName(UINT8 type) {
  const char* word = type < kTargetTypeCount ? kTargetTypes[type].Word : nullptr;
  return word != nullptr ? word : kNonPolicy;
}

void AppendSlot(GrowingText& text, UINT16 slot) {
  struct NAMED_SLOT {
    UINT16 Slot;
    const char* Name;
  };
  constexpr NAMED_SLOT kNamed[] = {{'L', "L"}, {'M', "M"}, {4, "HBA"}, {3, "MLOM"}, {255, "SIOC1"}};
  for (const NAMED_SLOT& named : kNamed) {
    if (named.Slot == slot) {
      AppendLeaf(text, "<Slot", named.Name);
      return;
    }
  }
  AppendLeaf(text, "<Slot", UINT64{slot});
}

// What follows a device type: where the device sits, or what kind of medium it is.
struct PLACE_ROW {
  const char* DeviceType;
  bool SubType;
  bool Slot;
  bool Port;
};
constexpr PLACE_ROW kPlaces[] = {
    {"USB", true, false, false}, {"VMEDIA", true, false, false}, {"PXE", false, true, true},
    {"HDD", false, true, false}, {"SAN", false, true, false},    {"ISCSI", false, true, true},
};

void AppendPlace(GrowingText& text, ACTUAL_BOOT_TARGET& target) {
  if (target.Slot == kSlotChipsetStorage) {
    SetField(target.DeviceType, "PCHSTORAGE");
  }
  AppendLeaf(text, "<DeviceType", FieldText(target.DeviceType));
  for (const PLACE_ROW& row : kPlaces) {
    if (XmlStriCmp(row.DeviceType, target.DeviceType) != 0) {
      continue;
    }
    if (row.SubType) {
      AppendLeaf(text, "<SubType", FieldText(target.SubType));
    }
    if (row.Slot) {
      AppendSlot(text, target.Slot);
    }
    if (row.Port) {
      AppendLeaf(text, "<Port", UINT64{target.Port});
    }
  }
}

void AppendTarget(GrowingText& text, ACTUAL_BOOT_TARGET& target, const READERS& readers) {
  AsciiStrAppend(text, "<ActualBootTarget");
  AppendAttribute(text, TypeName(target.Type));
  AsciiStrAppend(text, ">\n");
  if (readers.Standalone) {
    if (target.ErrorCode == kTargetIgnoresPolicy) {
      SetField(target.RN, kNonPolicy);
    }
    AppendLeaf(text, "<RN", FieldText(target.RN));
  }
  AppendLeaf(text, "<DeviceName", FieldText(target.DeviceName));
  if (readers.Standalone) {
    AppendPlace(text, target);
  }
  AppendLeaf(text, "<ErrorCode", target.ErrorCode);
  AppendGroupTag(text, "</ActualBootTarget");
}

// The document; null when the pool is exhausted. Texts that are made for it are noted in the record.
PoolPtr<char> BuildDocument(ACTUAL_BOOT_ORDER& record) {
  const UINT8 mode = IsRackZephanFunc();
  const READERS readers{.Managed = mode == 1, .Standalone = mode == 0};
  GrowingText text;
  AsciiStrAppend(text, "<?xml version='1.0'?>\n");
  AppendGroupTag(text, "<ActualBootOrder");
  AppendHeader(text, record, readers);
  AppendGroupTag(text, "<ActualBootTargets");
  for (ACTUAL_BOOT_TARGET& target : std::span(record.Targets).first(kListedTargets)) {
    const bool unmatched = readers.Standalone && target.ErrorCode == kTargetNoMatch;
    if (target.HasOptionName != 0 && !unmatched) {
      AppendTarget(text, target, readers);
    }
  }
  AppendGroupTag(text, "</ActualBootTargets");
  AppendGroupTag(text, "</ActualBootOrder");
  return text.Take();
}

// True when the BMC took it all.
bool WriteText(BT_FILE_CONTEXT& context, const char* text) {
  return BtWriteFile(context, text, static_cast<UINT32>(TextLength(text))) == BT_DONE && context.IsOpen != 0;
}

// What the engine saw and did, for the people who read the file. False when the BMC did not take all of it.
bool WriteDebugComment(BT_FILE_CONTEXT& context) {
  GrowingText text;
  if (gPolicyEngine.PolicyDebugText) {
    AppendCommentText(text, {gPolicyEngine.PolicyDebugText.get(), gPolicyEngine.PolicyDebugTextUsed});
  }
  const PoolPtr<char> comment = text.Take();
  if (TextLength(comment.get()) == 0) {
    DebugPrint("No data for the buffer\n");
    return true;
  }
  DebugPrint("Writing debug data to actual order file.\n");
  const char* const pieces[] = {
      "\n<!--\n",
      "The following data concerns what hardware was present on the boot and how it was processed.\n",
      comment.get(),
      "\n-->\n",
  };
  bool written = true;
  for (const char* piece : pieces) {
    written = WriteText(context, piece) && written;
  }
  return written;
}

// False when the BMC may have the file with a piece missing, or ended anywhere.
bool WriteReport(const char* document) {
  BT_FILE_CONTEXT context;
  if (BtOpenFile(context, kReportFile, BT_CREATE_FILE) != BT_DONE) {
    return !BtUnheard(context);
  }
  bool written = WriteText(context, document);
  DebugPrint("Exporting debug info to XML\n");
  written = WriteDebugComment(context) && written;
  return BtCloseFile(context) == 0 && written;
}

}  // namespace

VOID EFIAPI ExportActualOrderXML(EFI_EVENT, VOID*) {
  ACTUAL_BOOT_ORDER* record = nullptr;
  EFI_STATUS status = LocateProtocol(record);
  if (!EFI_ERROR(status) && record == nullptr) {
    status = EFI_NOT_FOUND;  // somebody else's, without a record
  }
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed obtaining Actual Boot order:%r\n", kExport, status);
    return;
  }
  DebugPrint("In %a\n", kExport);
  const PoolPtr<char> document = BuildDocument(*record);
  if (!document) {
    DebugPrint("%a:Raw Data Alloc failed\n", kExport);
    return;
  }
  DebugPrint("ActualOrder Length=%d\n", TextLength(document.get()));
  for (UINTN tries = 0; tries < kTries; ++tries) {
    if (WriteReport(document.get())) {
      return;
    }
    DebugPrint("%a:The BMC did not take all of %a\n", kExport, kReportFile);
  }
}

}  // namespace bds
