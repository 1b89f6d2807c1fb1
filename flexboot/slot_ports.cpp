#include "flexboot/slot_ports.h"

#include "bootopt/boot_lists.h"
#include "flexboot/state.h"
#include "platform/pci_io.h"
#include "platform/pci_slot_info.h"
#include "platform/veyra_pci_io_properties.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "vboot/option_path.h"

namespace bds {
namespace {

constexpr UINTN kPortCapacity = 8;
constexpr UINTN kGroupCapacity = 8;
constexpr UINT32 kMaxSlotEntries = 64;  // of the platform's slot information

// Functions of one class, as the platform tells it.
struct FUNCTION_LIST {
  PCI_LOCATION Locations[kPortCapacity];
  UINTN Count = 0;

  bool Has(const PCI_LOCATION& location) const {
    for (UINTN i = 0; i < Count; ++i) {
      if (Locations[i] == location) {
        return true;
      }
    }
    return false;
  }
};

bool ReadLocation(EFI_PCI_IO_PROTOCOL* pciIo, PCI_LOCATION& location, EFI_STATUS& status) {
  UINTN segment = 0;
  UINTN bus = 0;
  UINTN device = 0;
  UINTN function = 0;
  status = pciIo->GetLocation(pciIo, &segment, &bus, &device, &function);
  if (EFI_ERROR(status)) {
    return false;
  }
  location = {static_cast<UINT32>(bus), static_cast<UINT32>(device), static_cast<UINT32>(function)};
  return true;
}

FUNCTION_LIST CollectFunctions(const HandleBuffer& handles, UINT16 functionClass) {
  FUNCTION_LIST list;
  for (const EFI_HANDLE handle : handles) {
    const auto* properties = HandleProtocol<VEYRA_PCI_IO_PROPERTIES>(handle);
    if (properties == nullptr || properties->Reserved0 != 0 || properties->Class != functionClass) {
      continue;
    }
    auto* pciIo = HandleProtocol<EFI_PCI_IO_PROTOCOL>(handle);
    EFI_STATUS status = EFI_SUCCESS;
    if (pciIo != nullptr && list.Count < kPortCapacity && ReadLocation(pciIo, list.Locations[list.Count], status)) {
      ++list.Count;
    }
  }
  return list;
}

// The devices that count as one slot.
struct SLOT_GROUP {
  UINT16 Slot = 0;
  const FUNCTION_LIST* Functions = nullptr;  // of the board's own ports
  UINT8 SecondaryBus = 0;                    // of a numbered slot: the buses behind it
  UINT8 SubordinateBus = 0;
};

struct SLOT_GROUPS {
  SLOT_GROUP Groups[kGroupCapacity];
  UINTN Count = 0;

  void Add(const SLOT_GROUP& group) {
    if (Count < kGroupCapacity) {
      Groups[Count++] = group;
    }
  }
};

void AddSlots(const PCI_SLOT_INFO& info, SLOT_GROUPS& groups) {
  const UINT32 count = info.Count < kMaxSlotEntries ? info.Count : kMaxSlotEntries;
  for (UINT32 i = 0; i < count; ++i) {
    const PCI_SLOT_ENTRY& slot = info.Entries[i];
    if (slot.Enabled != 0) {
      groups.Add({slot.SlotNumber, nullptr, slot.SecondaryBus, slot.SubordinateBus});
    }
  }
}

// The platform's view of the server. Its groups point into it.
struct SLOT_VIEW {
  FUNCTION_LIST LomPorts;
  FUNCTION_LIST StoragePorts;
  SLOT_GROUPS Groups;
};

EFI_STATUS ViewServer(SLOT_VIEW& view) {
  HandleBuffer handles;
  EFI_STATUS status = handles.Locate(ProtocolGuid<VEYRA_PCI_IO_PROPERTIES>);
  if (EFI_ERROR(status)) {
    DebugPrint("CreateSlotPortInfo:Failed locating VeyraPciIoProperties=%r\n", status);
    return status;
  }
  view.LomPorts = CollectFunctions(handles, kPciClassLomPort);
  DebugPrint("Total LOM ports %x \n", view.LomPorts.Count);
  view.StoragePorts = CollectFunctions(handles, kPciClassChipsetStorage);
  DebugPrint("Total PCHStorage ports %x \n", view.StoragePorts.Count);
  if (view.LomPorts.Count != 0) {
    view.Groups.Add({kSlotOnboardLan, &view.LomPorts});
  }
  if (view.StoragePorts.Count != 0) {
    view.Groups.Add({kSlotChipsetStorage, &view.StoragePorts});
  }
  PCI_SLOT_INFO* slots = nullptr;
  status = LocateProtocol(slots);
  if (EFI_ERROR(status)) {
    DebugPrint("CreateSlotPortInfo:Failed locating PciSlotInfo=%r\n", status);
    return status;
  }
  AddSlots(*slots, view.Groups);
  return EFI_SUCCESS;
}

// An active option with its device's location, looked up once for all groups.
struct LOCATED_OPTION {
  const BOOT_OPTION* Option;
  PCI_LOCATION Location;
};

UINTN LocateActiveOptions(std::span<LOCATED_OPTION> located) {
  const Partitions partitions;
  UINTN count = 0;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr && count < located.size();
       option = option->Next) {
    const bool active = (option->Attributes & LOAD_OPTION_ACTIVE) != 0;
    LOCATED_OPTION& entry = located[count];
    if (active && !IsBuiltInApplicationOption(*option) && LocateOption(*option, partitions, entry.Location)) {
      entry.Option = option;
      ++count;
    }
  }
  return count;
}

bool Belongs(const LOCATED_OPTION& option, const SLOT_GROUP& group) {
  const UINT32 bus = option.Location.Bus;
  if (group.Functions == nullptr) {
    return bus >= group.SecondaryBus && bus <= group.SubordinateBus;
  }
  if (!group.Functions->Has(option.Location)) {
    return false;
  }
  if (group.Slot == kSlotOnboardLan) {
    DebugPrint("LOM port %a \n", option.Option->Description.get());
  } else {
    DebugPrint("SW RAID port %a \n", option.Option->Description.get());
  }
  return true;
}

bool SortsBefore(const PCI_LOCATION& a, const PCI_LOCATION& b) {
  if (a.Bus != b.Bus) {
    return a.Bus < b.Bus;
  }
  return a.Device != b.Device ? a.Device < b.Device : a.Function < b.Function;
}

// The ports' numbers stay in place, the locations move between them.
void SortLocations(std::span<SLOT_PORT_ENTRY> entries) {
  for (UINTN i = 1; i < entries.size(); ++i) {
    for (UINTN at = i; at != 0 && SortsBefore(entries[at].Location, entries[at - 1].Location); --at) {
      const PCI_LOCATION smaller = entries[at].Location;
      entries[at].Location = entries[at - 1].Location;
      entries[at - 1].Location = smaller;
    }
  }
}

void AddGroup(const SLOT_GROUP& group, std::span<const LOCATED_OPTION> options) {
  UINT32& count = gFlexBoot.SlotPortCount;
  const UINT32 first = count;
  for (const LOCATED_OPTION& option : options) {
    if (!Belongs(option, group)) {
      continue;
    }
    DebugPrint("Matched Option Name %a \n", option.Option->Description.get());
    if (count < kSlotPortCapacity) {
      gFlexBoot.SlotPortTable[count] = {option.Location, group.Slot, static_cast<UINT16>(count - first)};
      ++count;
    }
  }
  SortLocations(std::span(gFlexBoot.SlotPortTable).subspan(first, count - first));
}

}  // namespace

EFI_STATUS CreateSlotPortInfo() {
  SLOT_VIEW view;
  if (const EFI_STATUS status = ViewServer(view); EFI_ERROR(status)) {
    return status;
  }
  const auto options = AllocateArray<LOCATED_OPTION>(BootOptionList.Count);
  if (!options) {
    return EFI_OUT_OF_RESOURCES;
  }
  const UINTN count = LocateActiveOptions({options.get(), BootOptionList.Count});
  gFlexBoot.SlotPortCount = 0;
  for (UINTN i = 0; i < view.Groups.Count; ++i) {
    AddGroup(view.Groups.Groups[i], {options.get(), count});
  }
  return EFI_SUCCESS;
}

std::span<const SLOT_PORT_ENTRY> SlotPortTable() { return {gFlexBoot.SlotPortTable, gFlexBoot.SlotPortCount}; }

bool LocateOption(const BOOT_OPTION& option, const Partitions& partitions, PCI_LOCATION& location) {
  if (IsLegacyOption(option)) {
    if (option.BbsEntry == nullptr) {
      return false;
    }
    location = {option.BbsEntry->Bus, option.BbsEntry->Device, option.BbsEntry->Function};
    return true;
  }
  const DevicePath* first = OptionPathInstances(option).Node();
  const PoolPtr<DevicePath> disk = IsHardDriveNode(first) ? partitions.FindDiskOf(first) : nullptr;
  return GetOptionPciLocation(option, disk.get(), location);
}

bool GetOptionPciLocation(const BOOT_OPTION& option, const EFI_DEVICE_PATH_PROTOCOL* disk, PCI_LOCATION& location) {
  const DevicePath* start = FindPciPathStart(option, disk);
  if (start == nullptr) {
    DebugPrint("PCI HW PATH NULL\n");
    return false;
  }
  const PoolPtr<DevicePath> trimmed = TrimToPciNode(start);
  if (!trimmed) {
    DebugPrint("PCI PATH NULL\n");
    return false;
  }
  DevicePath* remaining = trimmed.get();
  EFI_HANDLE handle = nullptr;
  if (EFI_ERROR(BootServices()->LocateDevicePath(&ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &remaining, &handle))) {
    DebugPrint("PCI HANDLE NULL\n");
    return false;
  }
  EFI_PCI_IO_PROTOCOL* pciIo = nullptr;
  EFI_STATUS status = OpenOn(handle, pciIo);
  if (EFI_ERROR(status)) {
    DebugPrint("HANDLE Protocol failed %r \n", status);
    return false;
  }
  if (!ReadLocation(pciIo, location, status)) {
    DebugPrint("PCIGetLocation failed %r \n", status);
    return false;
  }
  DebugPrint(" EFI Option Bus %x Dev %x Func %x \n", location.Bus, location.Device, location.Function);
  return true;
}

}  // namespace bds
