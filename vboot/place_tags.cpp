// Tags on slots and ports of the server: by the slot and port table, and by the PCI buses behind an adapter's slot.
#include "flexboot/slot_ports.h"
#include "flexboot/slot_translation.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "vboot/option_path.h"
#include "vboot/option_pci.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

PCI_LOCATION LocationOf(VBOOT_OPTION_WRAPPER& wrapper) {
  const BOOT_OPTION& option = *wrapper.Option;
  if (IsLegacyOption(option) && option.BbsEntry != nullptr) {
    return {option.BbsEntry->Bus, option.BbsEntry->Device, option.BbsEntry->Function};
  }
  if (!wrapper.LocationKnown) {
    static_cast<void>(GetOptionPciLocation(option, wrapper.DiskDevicePath.get(), wrapper.Location));
    wrapper.LocationKnown = true;
  }
  return wrapper.Location;
}

bool HasPort(VBOOT_OPTION_WRAPPER& wrapper, UINT32 port) {
  const PCI_LOCATION location = LocationOf(wrapper);
  for (const SLOT_PORT_ENTRY& entry : SlotPortTable()) {
    if (entry.Port == port && entry.Location == location) {
      DebugPrint("Found PORT match \n");
      return true;
    }
  }
  return false;
}

// How often the table describes the option in the slot.
UINTN CountInSlot(VBOOT_OPTION_WRAPPER& wrapper, UINT32 slot) {
  const PCI_LOCATION location = LocationOf(wrapper);
  UINTN count = 0;
  for (const SLOT_PORT_ENTRY& entry : SlotPortTable()) {
    if (entry.Slot == slot && entry.Location == location) {
      DebugPrint("Found SLOT match \n");
      ++count;
    }
  }
  return count;
}

bool IsBehind(const SLOT_BUSES& slot, UINT64 bus) { return bus >= slot.SecondaryBus && bus <= slot.SubordinateBus; }

TagVerdict JudgePlace(TAG_CALL& call, bool behind, UINT64 bus) {
  call.Found = {.Known = true, .Number = bus};
  call.Found.Why = behind ? "on a bus behind the slot" : "on no bus behind the slot";
  return SelectOrRefuse(behind);
}

TagVerdict JudgeLegacyBus(TAG_CALL& call, const BBS_TABLE& entry, const SLOT_BUSES& buses) {
  const UINT32 bus = entry.Bus;
  DebugPrint(" This one is 0x%x\n", bus);
  DebugPrintText(IsBehind(buses, bus) ? "Legacy match\n" : "Legacy  no match\n");
  return JudgePlace(call, IsBehind(buses, bus), bus);
}

TagVerdict JudgeBus(TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, const SLOT_BUSES& buses) {
  if (wrapper.PciHandle == nullptr) {
    const DevicePath* start = FindPciPathStart(*wrapper.Option, wrapper.DiskDevicePath.get());
    if (start == nullptr || LocatePciIo(start, wrapper) == nullptr) {
      return TagVerdict::Keep;
    }
  }
  if (wrapper.PciIo == nullptr) {
    wrapper.PciIo = HandleProtocol<EFI_PCI_IO_PROTOCOL>(wrapper.PciHandle);
  }
  UINTN segment = 0;
  UINTN bus = 0;
  UINTN device = 0;
  UINTN function = 0;
  if (wrapper.PciIo == nullptr ||
      EFI_ERROR(wrapper.PciIo->GetLocation(wrapper.PciIo, &segment, &bus, &device, &function))) {
    return TagVerdict::Refuse;
  }
  return JudgePlace(call, IsBehind(buses, bus), bus);
}

}  // namespace

EFI_STATUS PortNumTag(TAG_CALL& call) {
  UINT32 port = 0;
  if (const EFI_STATUS status = ReadTagValue(call, port); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("Trying to match port Num 0x%x...", port);
  WalkOptions(call, {"PortNumTag"}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    return HasPort(wrapper, port) ? TagVerdict::Select : RefuseBecause(call, "the port table has it elsewhere");
  });
  SayWhenNothingMatched(call, "PortNum");
  return EFI_SUCCESS;
}

EFI_STATUS SlotIDTag(TAG_CALL& call) {
  UINT32 slot = 0;
  if (const EFI_STATUS status = ReadTagValue(call, slot); EFI_ERROR(status)) {
    return status;
  }
  WalkOptions(call, {}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    const BOOT_OPTION& option = *wrapper.Option;
    if ((option.Attributes & LOAD_OPTION_ACTIVE) == 0 || IsBuiltInApplicationOption(option)) {
      return TagVerdict::Keep;
    }
    const UINTN count = CountInSlot(wrapper, slot);
    call.MatchCount += count;
    return count != 0 ? TagVerdict::SelectUncounted : RefuseBecause(call, "not in that slot");
  });
  SayWhenNothingMatched(call, "SlotID");
  return EFI_SUCCESS;
}

EFI_STATUS SlotTag(TAG_CALL& call) {
  constexpr UINT32 kMaxSlot = 255;
  constexpr char kTagName[] = "PhysicalAdaptorSlotNum";
  UINT32 slot = 0;
  if (EFI_ERROR(ParseTagValue(call, slot)) || slot > kMaxSlot) {
    return RefuseTagValue(call, slot, RangeText::Plain);
  }
  DebugPrint("TargetTag=%a, Processor=%a, Value 0x%x\n", call.TagName, "SlotTag", slot);
  SLOT_BUSES buses;
  if (const EFI_STATUS status = GetSlotBusNum(slot, buses); EFI_ERROR(status)) {
    SetTagMessage(call, "Error looking for slot %d (%r).", slot, status);
    return status;
  }
  DebugPrint("For slot %d (%a), bus 0x%x to 0x%x\n", slot, buses.Name, buses.SecondaryBus, buses.SubordinateBus);
  WalkOptions(call, {.Eligible = false}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    const BOOT_OPTION& option = *wrapper.Option;
    return IsLegacyOption(option) && option.BbsEntry != nullptr ? JudgeLegacyBus(call, *option.BbsEntry, buses)
                                                                : JudgeBus(call, wrapper, buses);
  });
  SayWhenNothingMatched(call, kTagName);
  return EFI_SUCCESS;
}

}  // namespace bds
