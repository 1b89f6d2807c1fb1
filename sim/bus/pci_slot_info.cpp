#include "sim/bus/pci_slot_info.h"

#include <algorithm>

#include "platform/pci_config.h"
#include "sim/bus/pci_slots.h"

namespace sim {
namespace {

// What the slot's root ports say of the buses behind them: the lowest and the highest one.
void TakeBuses(const SlotRecord& slot, const PciSpace& space, PCI_SLOT_ENTRY& entry) {
  const SlotPlace& place = kSlotPlaces[slot.number - 1];
  entry.SecondaryBus = 0xFF;
  for (std::size_t port = 0; port < (slot.riser ? kRiserPorts : 1); ++port) {
    const auto function = static_cast<std::uint8_t>(place.function + kRiserStep * port);
    const PciNode* node = space.At({0, place.bus, place.device, function});
    if (node == nullptr) continue;
    const auto bus = [node](std::uint32_t offset) { return static_cast<UINT8>(node->ReadConfig(offset, 1)); };
    entry.SecondaryBus = std::min<UINT8>(entry.SecondaryBus, bus(PCI_BRIDGE_SECONDARY_BUS_REGISTER_OFFSET));
    entry.SubordinateBus = std::max<UINT8>(entry.SubordinateBus, bus(PCI_BRIDGE_SUBORDINATE_BUS_REGISTER_OFFSET));
  }
}

// The lowest function on the bus.
void TakeAdapter(std::uint8_t bus, const PciSpace& space, PCI_SLOT_ENTRY& entry) {
  constexpr unsigned kFunctions = 32 * 8;
  for (unsigned place = 0; place < kFunctions; ++place) {
    const PciNode* node =
        space.At({0, bus, static_cast<std::uint8_t>(place / 8), static_cast<std::uint8_t>(place % 8)});
    if (node == nullptr) continue;
    const PciFunction& function = node->Function();
    entry.VendorId = function.vendorId;
    entry.DeviceId = function.deviceId;
    entry.SubsystemVendorId = function.subsystemVendorId;
    entry.SubsystemId = function.subsystemId;
    return;
  }
}

// What is told although it is otherwise.
void TakeTold(const SlotTold& told, PCI_SLOT_ENTRY& entry) {
  entry.Kind = told.kind;
  entry.VendorId = told.vendorId.value_or(entry.VendorId);
  entry.DeviceId = told.deviceId.value_or(entry.DeviceId);
  entry.SubsystemVendorId = told.subsystemVendorId.value_or(entry.SubsystemVendorId);
  entry.SubsystemId = told.subsystemId.value_or(entry.SubsystemId);
}

}  // namespace

PciSlotInfo::PciSlotInfo(const DeviceTree& tree, const PciSpace& space)
    : bytes_(sizeof(PCI_SLOT_INFO) + tree.slots.size() * sizeof(PCI_SLOT_ENTRY)),
      info_(reinterpret_cast<PCI_SLOT_INFO*>(bytes_.data())) {
  std::vector<SlotRecord> slots = tree.slots;
  std::sort(slots.begin(), slots.end(), [](const SlotRecord& a, const SlotRecord& b) { return a.number < b.number; });
  info_->Count = static_cast<UINT32>(slots.size());
  PCI_SLOT_ENTRY* entry = info_->Entries;
  for (const SlotRecord& slot : slots) {
    TakeBuses(slot, space, *entry);
    if (slot.enabled) TakeAdapter(entry->SecondaryBus, space, *entry);
    TakeTold(slot.told, *entry);
    entry->Enabled = slot.enabled ? 1 : 0;
    entry->SlotNumber = slot.number;
    entry->Name = kSlotPlaces[slot.number - 1].name;
    if (slot.told.name) entry->Name = names_.emplace_back(*slot.told.name).c_str();
    ++entry;
  }
}

}  // namespace sim
