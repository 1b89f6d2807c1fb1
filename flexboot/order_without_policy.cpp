// The report's record where no policy decides: the options that the firmware boots, in their order.
#include "bootopt/boot_lists.h"
#include "flexboot/actual_order.h"
#include "flexboot/policy_format.h"
#include "flexboot/slot_ports.h"
#include "support/debug_print.h"
#include "vboot/option_class.h"
#include "vboot/option_path.h"

namespace bds {
namespace {

bool IsReported(const BOOT_OPTION& option) {
  const bool active = (option.Attributes & LOAD_OPTION_ACTIVE) != 0;
  const bool hidden = (option.Attributes & LOAD_OPTION_HIDDEN) != 0;
  return option.GroupHeader == FALSE && active && !hidden;
}

void FillEntry(const BOOT_OPTION& option, const Partitions& partitions, ACTUAL_BOOT_TARGET& out) {
  out.Type = static_cast<UINT8>(TargetType::NonPolicyTarget);
  out.HasOptionName = 1;
  out.ErrorCode = kTargetIgnoresPolicy;
  SetField(out.DeviceName, ReportName(option).get());
  const char* classWord = ClassifyOption(option);
  SetField(out.DeviceType, classWord);
  if (HasSubType(classWord)) {
    SetField(out.SubType, GetOptionSubType(option, classWord));
  }
  PCI_LOCATION location;
  if (SitsInASlot(classWord) && LocateOption(option, partitions, location)) {
    UINT16 slot = 0;
    UINT16 port = 0;
    LookupSlotPort(location.Bus, location.Device, location.Function, slot, port);
    out.Slot = slot;
    out.Port = port;
  }
}

}  // namespace

void GenerateNoConfigActualOrderXML(ACTUAL_BOOT_ORDER& record) {
  DebugPrint("GenerateNoConfigActualOrderXML \n");
  CreateSlotPortInfo();
  SortList(BootOptionList, CompareByPriority);
  const Partitions partitions;
  UINTN count = 0;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr && count < kActualTargets;
       option = option->Next) {
    if (IsReported(*option)) {
      FillEntry(*option, partitions, record.Targets[count++]);
    }
  }
  record.TotalActualTargets = static_cast<UINT8>(count < kListedTargets ? count : kListedTargets);
  SetField(record.LastUpdate, "BIOS");
}

}  // namespace bds
