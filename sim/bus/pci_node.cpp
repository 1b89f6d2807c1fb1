// Configuration headers (PCI Local Bus 3.0, 6.1; PCI-to-PCI Bridge 1.2, 3.2) and the walk that numbers the buses.
#include "sim/bus/pci_node.h"

#include <algorithm>
#include <bit>

#include "platform/pci_config.h"

namespace sim {
namespace {

constexpr std::uint32_t kAddressLimit = 0xF0000000;
constexpr std::uint32_t kIoBar = 1;

std::uint32_t BarOffset(std::uint8_t index) { return PCI_BASE_ADDRESSREG_OFFSET + 4U * index; }

class Enumerator {
 public:
  Enumerator(const RootBridge& root, std::uint32_t& nextAddress)
      : root_(root), nextAddress_(nextAddress), lastUsed_(root.firstBus) {}

  void Walk(const std::vector<PciFunction>& functions, std::uint8_t bus, const DevicePath& parent) {
    for (const PciFunction* function : InOrder(functions)) {
      DevicePath path = parent;
      path.Pci(function->device, function->function);
      const PciLocation location{root_.segment, bus, function->device, function->function};
      nodes.push_back(std::make_unique<PciNode>(*function, location, path, HasSiblings(functions, *function)));
      PciNode& node = *nodes.back();
      PlaceBars(node);
      if (const auto* bridge = std::get_if<PciBridge>(&function->controller)) WalkBridge(*bridge, node, path);
    }
  }

  std::vector<std::unique_ptr<PciNode>> nodes;

 private:
  static std::vector<const PciFunction*> InOrder(const std::vector<PciFunction>& functions) {
    std::vector<const PciFunction*> present;
    for (const PciFunction& function : functions) {
      if (function.present) present.push_back(&function);
    }
    std::stable_sort(present.begin(), present.end(), [](const PciFunction* a, const PciFunction* b) {
      return a->device * 8 + a->function < b->device * 8 + b->function;
    });
    return present;
  }

  static bool HasSiblings(const std::vector<PciFunction>& functions, const PciFunction& one) {
    return std::any_of(functions.begin(), functions.end(), [&](const PciFunction& other) {
      return other.present && other.device == one.device && other.function != one.function;
    });
  }

  void PlaceBars(PciNode& node) {
    for (const PciBar& bar : node.Function().bars) {
      if (bar.io || bar.index > 5) continue;
      const auto size = static_cast<std::uint32_t>(std::max<std::uint64_t>(bar.size, 4096));
      const std::uint64_t place = (std::uint64_t{nextAddress_} + size - 1) / size * size;
      if (place + size > kAddressLimit) continue;
      node.SetBarAddress(bar.index, static_cast<std::uint32_t>(place));
      nextAddress_ = static_cast<std::uint32_t>(place) + size;
    }
  }

  void WalkBridge(const PciBridge& bridge, PciNode& node, const DevicePath& path) {
    const int wanted = bridge.secondaryBus ? *bridge.secondaryBus : lastUsed_ + 1;
    if (wanted <= lastUsed_ || wanted > root_.lastBus) return;  // no number left: nothing behind it is reached
    const auto secondary = static_cast<std::uint8_t>(wanted);
    lastUsed_ = secondary;
    Walk(bridge.functions, secondary, path);
    node.SetBridgeBuses(node.Location().bus, secondary, lastUsed_);
  }

  const RootBridge& root_;
  std::uint32_t& nextAddress_;
  std::uint8_t lastUsed_;
};

}  // namespace

PciNode::PciNode(const PciFunction& function, const PciLocation& location, DevicePath path, bool multiFunction)
    : function_(function), location_(location), path_(std::move(path)) {
  Put(PCI_VENDOR_ID_OFFSET, 2, function.vendorId);
  Put(PCI_DEVICE_ID_OFFSET, 2, function.deviceId);
  const unsigned memory = function.memory ? EFI_PCI_COMMAND_MEMORY_SPACE : 0;
  Put(PCI_COMMAND_OFFSET, 2, EFI_PCI_COMMAND_IO_SPACE | memory);
  Put(PCI_REVISION_ID_OFFSET, 1, function.revision);
  Put(PCI_CLASSCODE_OFFSET, 3, function.classCode);
  const UINT8 layout = IsBridge() ? HEADER_TYPE_PCI_TO_PCI_BRIDGE : HEADER_TYPE_DEVICE;
  Put(PCI_HEADER_TYPE_OFFSET, 1, layout | (multiFunction ? HEADER_TYPE_MULTI_FUNCTION : 0U));
  if (IsBridge()) return;
  Put(PCI_SUBSYSTEM_VENDOR_ID_OFFSET, 2, function.subsystemVendorId);
  Put(PCI_SUBSYSTEM_ID_OFFSET, 2, function.subsystemId);
  for (const PciBar& bar : function.bars) {
    if (bar.io && bar.index <= 5) Put(BarOffset(bar.index), 4, kIoBar);
  }
}

void PciNode::Put(std::uint32_t offset, unsigned width, std::uint32_t value) {
  for (unsigned i = 0; i < width; ++i) config_[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t PciNode::ReadConfig(std::uint32_t offset, unsigned width) const {
  if (offset >= kConfigSize || width > kConfigSize - offset) return UINT32_MAX >> (32 - 8 * width);
  std::uint32_t value = 0;
  for (unsigned i = 0; i < width; ++i) value |= std::uint32_t{config_[offset + i]} << (8 * i);
  return value;
}

void PciNode::WriteConfig(std::uint32_t offset, unsigned width, std::uint32_t value) {
  if (offset == PCI_COMMAND_OFFSET && width <= 2) return Put(offset, width, value & 0x0547);
  if (offset == PCI_INT_LINE_OFFSET && width == 1) return Put(offset, width, value);
  for (const PciBar& bar : function_.bars) {
    if (IsBridge() || bar.index > 5 || offset != BarOffset(bar.index) || width != 4) continue;
    // Writing all ones and reading back tells the size.
    Put(offset, 4, (value & ~static_cast<std::uint32_t>(bar.size - 1)) | (bar.io ? kIoBar : 0));
  }
}

const PciBar* PciNode::Bar(std::uint8_t index) const {
  const auto found =
      std::find_if(function_.bars.begin(), function_.bars.end(), [&](const PciBar& bar) { return bar.index == index; });
  return found == function_.bars.end() ? nullptr : &*found;
}

std::uint64_t PciNode::BarAddress(std::uint8_t index) const {
  const PciBar* bar = Bar(index);
  return bar == nullptr || bar->io || index > 5 ? 0 : ReadConfig(BarOffset(index), 4) & ~0xFU;
}

void PciNode::SetBarAddress(std::uint8_t index, std::uint32_t address) { Put(BarOffset(index), 4, address); }

void PciNode::SetBridgeBuses(std::uint8_t primary, std::uint8_t secondary, std::uint8_t subordinate) {
  Put(PCI_BRIDGE_PRIMARY_BUS_REGISTER_OFFSET, 1, primary);
  Put(PCI_BRIDGE_SECONDARY_BUS_REGISTER_OFFSET, 1, secondary);
  Put(PCI_BRIDGE_SUBORDINATE_BUS_REGISTER_OFFSET, 1, subordinate);
}

std::vector<std::unique_ptr<PciNode>> EnumeratePci(const RootBridge& root, std::uint32_t& nextAddress) {
  DevicePath path;
  path.Acpi(root.express ? 0x0A0841D0 : 0x0A0341D0, root.uid);
  Enumerator enumerator(root, nextAddress);
  enumerator.Walk(root.functions, root.firstBus, path);
  return std::move(enumerator.nodes);
}

bool ReadBar(const PciBar& bar, std::uint64_t offset, unsigned width, std::uint64_t& value) {
  if (offset >= bar.size || width > bar.size - offset) return false;
  value = bar.model == nullptr ? 0 : bar.model->Read(offset, width);
  return true;
}

bool WriteBar(const PciBar& bar, std::uint64_t offset, unsigned width, std::uint64_t value) {
  if (offset >= bar.size || width > bar.size - offset) return false;
  if (bar.model != nullptr) bar.model->Write(offset, width, value);
  return true;
}

}  // namespace sim
