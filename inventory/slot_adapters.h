// The platform's slots as the inventory sees them: which one a bus is behind, and what is known of the adapter in it.
#pragma once

#include <span>

#include "platform/pci_slot_info.h"
#include "support/format.h"

namespace bds {

inline constexpr UINTN kMaxInventorySlots = 64;  // of the platform's slot information; further ones are not looked at

using SlotEntries = std::span<const PCI_SLOT_ENTRY>;
[[nodiscard]] SlotEntries SlotEntriesOf(const PCI_SLOT_INFO& info);

// The place of the first enabled slot with the bus behind it; with `adaptersOnly`, of those that adapters are plugged
// into. False: there is none.
[[nodiscard]] bool FindSlotOfBus(SlotEntries slots, UINTN bus, bool adaptersOnly, UINTN& place);

// Adapters whose ports are not taken from network drivers, and whose number of ports is known by model.
struct SLOT_ADAPTER {
  UINT16 DeviceIds[3];       // 0: fewer
  UINT16 SubsystemVendorId;  // 0: any
  UINT16 SubsystemId;        // 0: any
  UINT16 InterfaceCount;
  const FormatString<UINT16>* Skipping;  // says that ports in the slot of that number are skipped; null: they are not
};
// Null for an adapter of which nothing is known: its ports are counted.
[[nodiscard]] const SLOT_ADAPTER* FindSlotAdapter(const PCI_SLOT_ENTRY& slot);

}  // namespace bds
