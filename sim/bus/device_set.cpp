// Installation order is the order in which drivers of the same version are tried.
#include "sim/bus/device_set.h"

#include "sim/bus/media_drivers.h"
#include "sim/bus/pci_drivers.h"
#include "sim/bus/pci_slot_info.h"
#include "sim/bus/root_bridge_io.h"

namespace sim {
struct DeviceSet::State {
  DeviceTree tree;
  PciSpace space;
  std::vector<std::unique_ptr<RootBridgeIo>> rootBridges;
  std::unique_ptr<PciSlotInfo> slots;
  std::vector<std::unique_ptr<DevicePath>> paths;
  std::vector<EFI_HANDLE> handles;
  std::vector<std::unique_ptr<BusDriver>> drivers;
};

DeviceSet::DeviceSet(Machine& machine, DeviceTree tree, const BuildOptions& options)
    : state_(std::make_unique<State>()) {
  state_->tree = std::move(tree);
  const BusContext context = ContextOf(machine);
  for (const RootBridge& bridge : state_->tree.rootBridges) {
    state_->rootBridges.push_back(std::make_unique<RootBridgeIo>(bridge, state_->space, context));
    state_->paths.push_back(std::make_unique<DevicePath>(state_->rootBridges.back()->Path()));
    std::vector<Interface> interfaces = state_->rootBridges.back()->Interfaces();
    interfaces.insert(interfaces.begin(), {ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, state_->paths.back()->Get()});
    EFI_HANDLE handle = nullptr;
    for (const Interface& item : interfaces) {
      (void)machine.Handles().Install(&handle, &item.guid, item.pointer);
    }
    state_->handles.push_back(handle);
  }
  if (state_->tree.slotInformation && !state_->handles.empty()) {
    state_->slots = std::make_unique<PciSlotInfo>(state_->tree, state_->space);
    for (const Interface& item : state_->slots->Interfaces()) {
      (void)machine.Handles().Install(&state_->handles[0], &item.guid, item.pointer);
    }
  }
  auto& drivers = state_->drivers;
  drivers.push_back(MakePciBusDriver(machine, state_->tree));
  for (auto& driver : MakeControllerDrivers(machine, state_->tree)) drivers.push_back(std::move(driver));
  if (auto thunk = MakeThunkDriver(machine, state_->tree); thunk != nullptr) drivers.push_back(std::move(thunk));
  drivers.push_back(MakeUsbMassStorageDriver(machine));
  drivers.push_back(MakeNetworkBootDriver(machine));
  drivers.push_back(MakePartitionDriver(machine));
  drivers.push_back(MakeFatDriver(machine));
  if (!options.connected) return;
  for (EFI_HANDLE handle : state_->handles) (void)machine.ConnectController(handle, nullptr, nullptr, true);
}

DeviceSet::~DeviceSet() = default;

DeviceSet& BuildDevices(Machine& machine, DeviceTree tree, const BuildOptions& options) {
  return machine.Attach<DeviceSet>(std::move(tree), options);
}

const DeviceTree& DeviceSet::Tree() const { return state_->tree; }

const std::vector<EFI_HANDLE>& DeviceSet::RootBridgeHandles() const { return state_->handles; }

const PciFunction* DeviceSet::FunctionAt(const PciLocation& place) const {
  const PciNode* node = state_->space.At(place);
  return node == nullptr ? nullptr : &node->Function();
}

}  // namespace sim
