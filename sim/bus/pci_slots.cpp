#include "sim/bus/pci_slots.h"

#include <fmt/format.h>

#include <algorithm>

namespace sim {
namespace {

RootBridge* BridgeOf(DeviceTree& tree, std::uint8_t bus) {
  const auto found = std::find_if(tree.rootBridges.begin(), tree.rootBridges.end(), [bus](const RootBridge& bridge) {
    return bridge.segment == 0 && bridge.firstBus == bus;
  });
  return found == tree.rootBridges.end() ? nullptr : &*found;
}

std::string FaultOf(DeviceTree& tree, const PciSlot& slot) {
  if (slot.number < 1 || slot.number > kSlotPlaces.size()) return fmt::format("there is no slot {}", slot.number);
  const SlotPlace& place = kSlotPlaces[slot.number - 1];
  if (BridgeOf(tree, place.bus) == nullptr) {
    return fmt::format("slot {} needs a root bridge whose first bus is 0x{:02X}", slot.number, place.bus);
  }
  if (slot.riser && slot.number > kLastRiserSlot) return "a riser is in slot 1 or 2";
  for (const SlotRecord& other : tree.slots) {
    if (other.number == slot.number) return fmt::format("slot {} is described twice", slot.number);
    if (other.riser && slot.riser) return "there is one riser";
  }
  if (!slot.riser && (!slot.functions[1].empty() || !slot.functions[2].empty())) {
    return fmt::format("slot {} has one root port, 0, without a riser", slot.number);
  }
  return {};
}

}  // namespace

std::string PlugSlot(DeviceTree& tree, PciSlot slot) {
  if (std::string fault = FaultOf(tree, slot); !fault.empty()) return fault;
  const SlotPlace& place = kSlotPlaces[slot.number - 1];
  RootBridge& root = *BridgeOf(tree, place.bus);
  const std::size_t ports = slot.riser ? kRiserPorts : 1;
  for (std::size_t port = 0; port < ports; ++port) {
    const auto function = static_cast<std::uint8_t>(place.function + kRiserStep * port);
    root.functions.push_back(Bridge(place.device, function, std::move(slot.functions[port])));
    root.functions.back().present = slot.enabled;
  }
  tree.slots.push_back({slot.number, slot.enabled, slot.riser, std::move(slot.told)});
  return {};
}

}  // namespace sim
