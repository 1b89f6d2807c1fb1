// Where the devices of the boot options sit, in the words of a person at the rack: slot and port.
#pragma once

#include <span>

#include "bootopt/boot_option.h"
#include "platform/device_path.h"

namespace bds {

class Partitions;

// Slots that are no number of the platform's slot information.
inline constexpr UINT16 kSlotOnboardLan = 'L';
inline constexpr UINT16 kSlotChipsetStorage = 'S';

struct PCI_LOCATION {
  UINT32 Bus = 0;
  UINT32 Device = 0;
  UINT32 Function = 0;
  friend bool operator==(const PCI_LOCATION&, const PCI_LOCATION&) = default;
};

struct SLOT_PORT_ENTRY {
  PCI_LOCATION Location;  // of a boot option's device
  UINT16 Slot = 0;        // kSlotOnboardLan, kSlotChipsetStorage or the slot's number
  UINT16 Port = 0;        // position within the slot, from 0 in ascending order of location
};
static_assert(sizeof(SLOT_PORT_ENTRY) == 16);
inline constexpr UINTN kSlotPortCapacity = 64;

// Builds the table anew from the active options of BootOptionList. The status of the platform interface that is
// missing, and EFI_OUT_OF_RESOURCES; the table then stays what it was. Entries beyond its capacity are left out.
EFI_STATUS CreateSlotPortInfo();
// The table as it is now; an option's device is the first entry with its location.
[[nodiscard]] std::span<const SLOT_PORT_ENTRY> SlotPortTable();

// The PCI location of an option's device: that of its BBS entry, or of the path of a UEFI option. False when there is
// none.
[[nodiscard]] bool LocateOption(const BOOT_OPTION& option, const Partitions& partitions, PCI_LOCATION& location);
// The PCI location of a UEFI option's device. disk is the whole disk's path for an option that begins with a partition,
// or null. False, and nothing changed, when the path leads to no PCI function of this boot.
[[nodiscard]] bool GetOptionPciLocation(const BOOT_OPTION& option, const EFI_DEVICE_PATH_PROTOCOL* disk,
                                        PCI_LOCATION& location);

}  // namespace bds
