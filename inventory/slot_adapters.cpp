#include "inventory/slot_adapters.h"

#include "inventory/adapter_table.h"

namespace bds {
namespace {

constexpr FormatString<UINT16> kI350{"An I350 NIC in Slot:%d, Skipping it\n"};
constexpr FormatString<UINT16> kX520{"An X520 in Slot:%d, Skipping it\n"};
constexpr FormatString<UINT16> kX540Optical{"An X540 10 Gbps 2 port NIC in Slot:%d, Skipping it\n"};
constexpr FormatString<UINT16> kX540Copper{"An X540 10 GBase-T in Slot:%d, Skipping it\n"};
constexpr FormatString<UINT16> kX710TwoPorts{"An X710 2 port in Slot:%d, Skipping it\n"};
constexpr FormatString<UINT16> kX710FourPorts{"An X710 4 port in Slot:%d, Skipping it\n"};
constexpr FormatString<UINT16> kXl710{"An XL710 2 port in Slot:%d, Skipping it\n"};

// The first row that fits an adapter is its own. The last one has no message: such adapters are in service, but their
// ports come from network drivers and are not counted.
constexpr SLOT_ADAPTER kSlotAdapters[] = {
    {{kI350Device}, kBoardVendor, 0x00B9, 4, &kI350},
    {{kI350Device}, kBoardVendor, 0x0133, 4, &kI350},
    {{kI350Device}, 0, 0, 2, &kI350},
    {{0x10FB}, kIntelVendor, 0x000C, 2, &kX520},
    {{0x10FB}, kBoardVendor, 0x00BF, 2, &kX540Optical},
    {{0x1528}, kBoardVendor, 0x00BF, 2, &kX540Copper},
    {{0x1563}, kBoardVendor, 0x01A2, 2, &kX520},
    {{0x1572}, kBoardVendor, 0x020A, 2, &kX710TwoPorts},
    {{0x1572}, kBoardVendor, 0x013B, 4, &kX710FourPorts},
    {{0x1583, 0x1589, 0x158B}, kBoardVendor, 0x013C, 2, &kXl710},
    {{0x1583, 0x1589, 0x158B}, kBoardVendor, 0x020B, 4, &kXl710},
    {{0x1583, 0x1589, 0x158B}, kBoardVendor, 0x0225, 2, &kXl710},
    {{0x1583, 0x1589, 0x158B}, kBoardVendor, 0, 0, nullptr},
};

bool Fits(const SLOT_ADAPTER& row, const PCI_SLOT_ENTRY& slot) {
  const UINT16 device = slot.DeviceId;
  const bool known =
      device != 0 && (device == row.DeviceIds[0] || device == row.DeviceIds[1] || device == row.DeviceIds[2]);
  return known && (row.SubsystemVendorId == 0 || row.SubsystemVendorId == slot.SubsystemVendorId) &&
         (row.SubsystemId == 0 || row.SubsystemId == slot.SubsystemId);
}

}  // namespace

SlotEntries SlotEntriesOf(const PCI_SLOT_INFO& info) {
  return {info.Entries, info.Count < kMaxInventorySlots ? info.Count : kMaxInventorySlots};
}

bool FindSlotOfBus(SlotEntries slots, UINTN bus, bool adaptersOnly, UINTN& place) {
  for (place = 0; place < slots.size(); ++place) {
    const PCI_SLOT_ENTRY& slot = slots[place];
    const bool looked = slot.Enabled != 0 && (!adaptersOnly || slot.Kind == kPciSlotKindAdapter);
    if (looked && slot.SecondaryBus <= bus && bus <= slot.SubordinateBus) {
      return true;
    }
  }
  return false;
}

const SLOT_ADAPTER* FindSlotAdapter(const PCI_SLOT_ENTRY& slot) {
  if (slot.VendorId != kIntelVendor) {
    return nullptr;
  }
  for (const SLOT_ADAPTER& row : kSlotAdapters) {
    if (Fits(row, slot)) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace bds
