// The platform's slot information, told from the buses that were given out and from what is plugged in.
#pragma once

#include <deque>
#include <string>

#include "platform/pci_slot_info.h"
#include "sim/bus/device_object.h"
#include "sim/bus/pci_space.h"

namespace sim {

class PciSlotInfo final : public DeviceObject {
 public:
  // The slots in the order of their numbers. The adapter is the first function on the slot's own bus.
  PciSlotInfo(const DeviceTree& tree, const PciSpace& space);
  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(*info_)}; }

 private:
  std::vector<std::byte> bytes_;
  std::deque<std::u16string> names_;  // that the description gives
  PCI_SLOT_INFO* info_;
};

}  // namespace sim
