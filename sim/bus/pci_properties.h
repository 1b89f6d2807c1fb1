// What the platform tells of a PCI function beyond its registers, on the function's own handle.
#pragma once

#include "platform/veyra_pci_io_properties.h"
#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"

namespace sim {

class PciProperties final : public DeviceObject {
 public:
  explicit PciProperties(const PciFunction& function) { properties_.Class = function.boardClass; }
  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(properties_)}; }

 private:
  VEYRA_PCI_IO_PROPERTIES properties_{};
};

}  // namespace sim
