// ConnectController and DisconnectController (UEFI 2.10, 7.3.12 and 7.3.13): which drivers are asked, in which order.
#include <algorithm>

#include "platform/bus_specific_driver_override.h"
#include "platform/driver_binding.h"
#include "platform/driver_family_override.h"
#include "platform/platform_driver_override.h"
#include "sim/firmware/machine.h"

namespace sim {
namespace {

constexpr std::size_t kMaxOverrides = 1000;  // a platform that names drivers without end is not believed

using Bindings = std::vector<EFI_DRIVER_BINDING_PROTOCOL*>;

void AddBinding(Bindings& bindings, EFI_DRIVER_BINDING_PROTOCOL* binding) {
  if (binding != nullptr && std::find(bindings.begin(), bindings.end(), binding) == bindings.end()) {
    bindings.push_back(binding);
  }
}

// All bindings that belong to an image: on its own handle or on further ones.
void AddBindingsOf(Machine& machine, Bindings& bindings, EFI_HANDLE image) {
  AddBinding(bindings, machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(image));
  for (const EFI_HANDLE handle : machine.Handles().With(ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>)) {
    auto* binding = machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(handle);
    if (binding->ImageHandle == image) {
      AddBinding(bindings, binding);
    }
  }
}

template <typename Override, typename Next>
void AddOverrides(Machine& machine, Bindings& bindings, Override* override, Next next) {
  EFI_HANDLE image = nullptr;
  for (std::size_t i = 0; override != nullptr && i < kMaxOverrides; ++i) {
    if (EFI_ERROR(next(override, &image))) {
      return;
    }
    AddBindingsOf(machine, bindings, image);
  }
}

void AddFamilyOverrides(Machine& machine, Bindings& bindings) {
  const AcrossCalls<std::vector<std::pair<UINT32, EFI_DRIVER_BINDING_PROTOCOL*>>> kept(machine.Held());
  auto& families = *kept;
  const AcrossCalls handles(machine.Held(), machine.Handles().With(ProtocolGuid<EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL>));
  for (const EFI_HANDLE handle : *handles) {
    auto* family = machine.Handles().Get<EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL>(handle);
    auto* binding = machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(handle);
    if (binding != nullptr) {
      families.emplace_back(family->GetVersion(family), binding);
    }
  }
  std::stable_sort(families.begin(), families.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [version, binding] : families) {
    AddBinding(bindings, binding);
  }
}

void AddByVersion(Machine& machine, Bindings& bindings) {
  Bindings rest;
  for (const EFI_HANDLE handle : machine.Handles().With(ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>)) {
    rest.push_back(machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(handle));
  }
  std::stable_sort(rest.begin(), rest.end(), [](const auto* a, const auto* b) { return a->Version > b->Version; });
  for (EFI_DRIVER_BINDING_PROTOCOL* binding : rest) {
    AddBinding(bindings, binding);
  }
}

void OrderBindings(Machine& machine, EFI_HANDLE controller, EFI_HANDLE* driverImages, Bindings& bindings) {
  for (EFI_HANDLE* image = driverImages; image != nullptr && *image != nullptr; ++image) {
    AddBindingsOf(machine, bindings, *image);
  }
  void* platform = nullptr;
  if (!EFI_ERROR(
          machine.Handles().LocateProtocol(&ProtocolGuid<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL>, nullptr, &platform))) {
    AddOverrides(machine, bindings, static_cast<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL*>(platform),
                 [controller](EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL* override, EFI_HANDLE* image) {
                   return override->GetDriver(override, controller, image);
                 });
  }
  AddFamilyOverrides(machine, bindings);
  AddOverrides(machine, bindings, machine.Handles().Get<EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL>(controller),
               [](EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL* override, EFI_HANDLE* image) {
                 return override->GetDriver(override, image);
               });
  AddByVersion(machine, bindings);
}

bool StillBound(Machine& machine, const EFI_DRIVER_BINDING_PROTOCOL* binding) {
  const auto handles = machine.Handles().With(ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>);
  return std::any_of(handles.begin(), handles.end(), [&](EFI_HANDLE handle) {
    return machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(handle) == binding;
  });
}

EFI_STATUS ConnectOne(Machine& machine, EFI_HANDLE controller, EFI_HANDLE* driverImages,
                      EFI_DEVICE_PATH_PROTOCOL* remaining) {
  const AcrossCalls<Bindings> kept(machine.Held());
  Bindings& bindings = *kept;
  OrderBindings(machine, controller, driverImages, bindings);
  bool started = false;
  // A driver that started may have made another one able to: the rest is asked again from the front.
  for (bool again = true; again;) {
    again = false;
    for (auto binding = bindings.begin(); binding != bindings.end(); ++binding) {
      EFI_DRIVER_BINDING_PROTOCOL* driver = *binding;
      if (!machine.Handles().Exists(controller) || !StillBound(machine, driver)) {
        continue;
      }
      machine.Counts().Add("driver.supported");
      if (EFI_ERROR(driver->Supported(driver, controller, remaining))) {
        continue;
      }
      bindings.erase(binding);
      machine.Counts().Add("driver.start");
      started |= !EFI_ERROR(driver->Start(driver, controller, remaining));
      again = true;
      break;
    }
  }
  if (started) {
    return EFI_SUCCESS;
  }
  const bool atEnd = remaining != nullptr && remaining->Type == END_DEVICE_PATH_TYPE;
  return atEnd ? EFI_SUCCESS : EFI_NOT_FOUND;
}

// Children that the drivers of a controller opened its protocols for (agent null: of any driver).
std::vector<EFI_HANDLE> Children(Machine& machine, EFI_HANDLE controller, EFI_HANDLE agent) {
  std::vector<EFI_HANDLE> children;
  const auto* interfaces = machine.Handles().InterfacesOf(controller);
  if (interfaces == nullptr) {
    return children;
  }
  for (const HandleDatabase::Interface& interface : *interfaces) {
    for (const HandleDatabase::Open& open : interface.opens) {
      if (open.attributes == EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER && (agent == nullptr || open.agent == agent) &&
          std::find(children.begin(), children.end(), open.controller) == children.end()) {
        children.push_back(open.controller);
      }
    }
  }
  return children;
}

std::vector<EFI_HANDLE> Managers(Machine& machine, EFI_HANDLE controller) {
  std::vector<EFI_HANDLE> agents;
  for (const HandleDatabase::Interface& interface : *machine.Handles().InterfacesOf(controller)) {
    for (const HandleDatabase::Open& open : interface.opens) {
      if ((open.attributes & EFI_OPEN_PROTOCOL_BY_DRIVER) != 0 &&
          std::find(agents.begin(), agents.end(), open.agent) == agents.end()) {
        agents.push_back(open.agent);
      }
    }
  }
  return agents;
}

// EFI_NOT_FOUND when the child is none of this driver's; otherwise success or EFI_DEVICE_ERROR.
EFI_STATUS StopDriver(Machine& machine, EFI_HANDLE controller, EFI_HANDLE agent, EFI_HANDLE child) {
  const AcrossCalls kept(machine.Held(), Children(machine, controller, agent));
  std::vector<EFI_HANDLE>& children = *kept;
  if (child != nullptr && std::find(children.begin(), children.end(), child) == children.end()) {
    return EFI_NOT_FOUND;
  }
  auto* binding = machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(agent);
  if (binding == nullptr) {
    return EFI_DEVICE_ERROR;  // whoever opened it by driver has no Stop that could be called
  }
  const bool all = child == nullptr || children.size() == 1;
  if (child != nullptr) {
    children.assign(1, child);
  }
  EFI_STATUS status = EFI_SUCCESS;
  machine.Counts().Add("driver.stop");
  if (!children.empty()) {
    status = binding->Stop(binding, controller, children.size(), children.data());
  }
  // A driver whose last child went is told to let go of the controller too.
  if (!EFI_ERROR(status) && all && machine.Handles().Exists(controller)) {
    status = binding->Stop(binding, controller, 0, nullptr);
  }
  return EFI_ERROR(status) ? EFI_DEVICE_ERROR : EFI_SUCCESS;
}

// The agent's binding stands on the given handle, or belongs to the image of that handle.
bool IsDriver(Machine& machine, EFI_HANDLE agent, EFI_HANDLE driver) {
  const auto* binding = machine.Handles().Get<EFI_DRIVER_BINDING_PROTOCOL>(agent);
  return agent == driver || (binding != nullptr && binding->ImageHandle == driver);
}

bool NamesADriver(Machine& machine, EFI_HANDLE driver) {
  Bindings bindings;
  AddBindingsOf(machine, bindings, driver);
  return !bindings.empty();
}

}  // namespace

EFI_STATUS Machine::ConnectController(EFI_HANDLE controller, EFI_HANDLE* driverImages,
                                      EFI_DEVICE_PATH_PROTOCOL* remaining, bool recursive) {
  if (!handles_.Exists(controller)) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_STATUS status = ConnectOne(*this, controller, driverImages, remaining);
  if (recursive && handles_.Exists(controller)) {
    const AcrossCalls children(held_, Children(*this, controller, nullptr));
    for (const EFI_HANDLE child : *children) {
      if (handles_.Exists(child)) {
        static_cast<void>(ConnectController(child, nullptr, nullptr, true));
      }
    }
  }
  return status;
}

EFI_STATUS Machine::DisconnectController(EFI_HANDLE controller, EFI_HANDLE driver, EFI_HANDLE child) {
  if (!handles_.Exists(controller) || (driver != nullptr && !handles_.Exists(driver)) ||
      (child != nullptr && !handles_.Exists(child)) || (driver != nullptr && !NamesADriver(*this, driver))) {
    return EFI_INVALID_PARAMETER;
  }
  const AcrossCalls managers(held_, Managers(*this, controller));
  std::erase_if(*managers, [&](EFI_HANDLE agent) { return driver != nullptr && !IsDriver(*this, agent, driver); });
  if (managers->empty()) {
    return EFI_SUCCESS;
  }
  bool stopped = false;
  bool asked = false;
  for (const EFI_HANDLE agent : *managers) {
    if (!handles_.Exists(controller)) {
      break;
    }
    const EFI_STATUS status = StopDriver(*this, controller, agent, child);
    asked |= status != EFI_NOT_FOUND;
    stopped |= !EFI_ERROR(status);
  }
  if (stopped) {
    return EFI_SUCCESS;
  }
  return asked ? EFI_DEVICE_ERROR : EFI_NOT_FOUND;
}

}  // namespace sim
