// The configuration space of a machine: each function by its address, whichever root bridge it is behind, since a
// configuration cycle carries bus, device and function alone. And where the next memory range of a function may lie.
#pragma once

#include <map>

#include "sim/bus/pci_node.h"

namespace sim {

class PciSpace {
 public:
  static constexpr std::uint32_t kFirstAddress = 0xC0000000;

  // `node` has to outlive this.
  void Add(PciNode& node) {
    const PciLocation& place = node.Location();
    nodes_[Key(place.segment, place.bus, place.device, place.function)] = &node;
  }
  // Null: nothing answers there.
  [[nodiscard]] PciNode* At(const PciLocation& place) const {
    const auto found = nodes_.find(Key(place.segment, place.bus, place.device, place.function));
    return found == nodes_.end() ? nullptr : found->second;
  }

  std::uint32_t nextAddress = kFirstAddress;

 private:
  static std::uint64_t Key(std::uint32_t segment, std::uint32_t bus, std::uint32_t device, std::uint32_t function) {
    return std::uint64_t{segment} << 16 | bus << 8 | device << 3 | function;
  }

  std::map<std::uint64_t, PciNode*> nodes_;
};

}  // namespace sim
