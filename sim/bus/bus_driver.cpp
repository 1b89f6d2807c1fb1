// The driver model's bookkeeping (UEFI 2.10, 11.1): open by driver, children opened by child controller, all undone
// in reverse.
#include "sim/bus/bus_driver.h"

#include <algorithm>

namespace sim {

BusContext ContextOf(Machine& machine) {
  const auto allocate = [&machine](std::size_t size) {
    return machine.Pool().Allocate(EfiBootServicesData, size, machine.CurrentOwner());
  };
  const auto wait = [&machine](std::uint64_t milliseconds) { machine.Time().Advance(milliseconds * kMillisecond); };
  const auto tells = [&machine] { return machine.TracingPci(); };
  const auto tell = [&machine](const std::string& access) { machine.TracePci(access); };
  const auto wrote = [&machine] {
    if (machine.InDriver()) machine.OnWrite("pci");
  };
  return {.allocatePool = allocate, .wait = wait, .tellsPci = tells, .tellPci = tell, .onPciWrite = wrote};
}

BusDriver::BusDriver(Machine& machine, BusDriverFacts facts)
    : SimDriver(machine, facts.name, facts.version, facts.mark),
      context_(ContextOf(machine)),
      facts_(std::move(facts)) {}

std::u16string BusDriver::NameOf(void*) const { return {}; }

EFI_STATUS BusDriver::OpenConsumed(EFI_HANDLE controller, UINT32 attributes, EFI_HANDLE user, void** interface) {
  return Owner().Handles().OpenProtocol(controller, &facts_.consumed, interface, Handle(), user, attributes);
}

void BusDriver::CloseConsumed(EFI_HANDLE controller, EFI_HANDLE user) {
  (void)Owner().Handles().CloseProtocol(controller, &facts_.consumed, Handle(), user);
}

EFI_STATUS BusDriver::Supported(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL*) {
  void* consumed = nullptr;
  const EFI_STATUS status = OpenConsumed(controller, EFI_OPEN_PROTOCOL_BY_DRIVER, controller, &consumed);
  if (EFI_ERROR(status)) return status;
  const bool serves = Serves(consumed);
  CloseConsumed(controller, controller);
  return serves ? EFI_SUCCESS : EFI_UNSUPPORTED;
}

EFI_STATUS BusDriver::Start(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL*) {
  Running running;
  EFI_STATUS status = OpenConsumed(controller, EFI_OPEN_PROTOCOL_BY_DRIVER, controller, &running.consumed);
  if (EFI_ERROR(status)) return status;
  status = StartController(controller, running);
  if (EFI_ERROR(status)) {
    for (Installed& child : running.children) (void)RemoveChild(controller, child);
    CloseConsumed(controller, controller);
    return status;
  }
  running_[controller] = std::move(running);
  return EFI_SUCCESS;
}

EFI_STATUS BusDriver::StartController(EFI_HANDLE controller, Running& running) {
  const auto* path = Owner().Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(controller);
  if (path == nullptr) return EFI_UNSUPPORTED;
  std::vector<BusChild> children;
  EFI_STATUS status = Enumerate(running.consumed, DevicePath::Copy(path), children);
  if (EFI_ERROR(status)) return status;
  if (children.empty() && facts_.needsChild) return EFI_NOT_FOUND;
  running.name = NameOf(running.consumed);
  for (BusChild& child : children) {
    status = InstallChild(controller, std::move(child), running);
    if (EFI_ERROR(status)) return status;
  }
  return EFI_SUCCESS;
}

EFI_STATUS BusDriver::InstallChild(EFI_HANDLE controller, BusChild child, Running& running) {
  Installed installed;
  installed.own = child.path.has_value();
  installed.handle = installed.own ? nullptr : controller;
  installed.name = std::move(child.name);
  installed.objects = std::move(child.objects);
  std::vector<Interface> wanted;
  if (installed.own) {
    installed.path = std::make_unique<DevicePath>(std::move(*child.path));
    wanted.push_back({ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, installed.path->Get()});
  }
  for (const auto& object : installed.objects) {
    for (const Interface& item : object->Interfaces()) wanted.push_back(item);
  }
  for (const EFI_GUID& mark : child.marks) wanted.push_back({mark, nullptr});
  EFI_STATUS status = EFI_SUCCESS;
  for (const Interface& item : wanted) {
    status = Owner().Handles().Install(&installed.handle, &item.guid, item.pointer);
    if (EFI_ERROR(status)) break;
    installed.interfaces.push_back(item);
  }
  const EFI_HANDLE handle = installed.handle;
  const bool opens = installed.own && !EFI_ERROR(status);
  running.children.push_back(std::move(installed));
  if (!opens) return status;
  void* ignored = nullptr;
  return OpenConsumed(controller, EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER, handle, &ignored);
}

// Takes the interfaces off in reverse; one that someone still holds open stops it, and all come back.
EFI_STATUS BusDriver::RemoveChild(EFI_HANDLE controller, Installed& child) {
  if (child.own) CloseConsumed(controller, child.handle);
  for (std::size_t left = child.interfaces.size(); left > 0; --left) {
    const Interface& item = child.interfaces[left - 1];
    if (!EFI_ERROR(Owner().Handles().Uninstall(child.handle, &item.guid, item.pointer))) continue;
    for (std::size_t back = left; back < child.interfaces.size(); ++back) {
      const Interface& lost = child.interfaces[back];
      (void)Owner().Handles().Install(&child.handle, &lost.guid, lost.pointer);
    }
    void* ignored = nullptr;
    if (child.own) (void)OpenConsumed(controller, EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER, child.handle, &ignored);
    return EFI_DEVICE_ERROR;
  }
  for (const auto& object : child.objects) {
    if (object->Retire()) retired_.push_back(object);
  }
  return EFI_SUCCESS;
}

EFI_STATUS BusDriver::Stop(EFI_HANDLE controller, const std::vector<EFI_HANDLE>& handles) {
  const auto found = running_.find(controller);
  if (found == running_.end()) return EFI_DEVICE_ERROR;
  std::vector<Installed>& children = found->second.children;
  const auto wanted = [&](const Installed& child) {
    if (handles.empty()) return true;
    return child.own && std::find(handles.begin(), handles.end(), child.handle) != handles.end();
  };
  bool allGone = true;
  for (auto child = children.begin(); child != children.end();) {
    const bool removed = wanted(*child) && !EFI_ERROR(RemoveChild(controller, *child));
    allGone = allGone && (removed || !wanted(*child));
    child = removed ? children.erase(child) : child + 1;
  }
  if (!allGone) return EFI_DEVICE_ERROR;
  if (!handles.empty()) return EFI_SUCCESS;
  CloseConsumed(controller, controller);
  running_.erase(found);
  return EFI_SUCCESS;
}

std::u16string BusDriver::ControllerName(EFI_HANDLE controller, EFI_HANDLE child) {
  const auto found = running_.find(controller);
  if (found == running_.end()) return {};
  if (child == nullptr) return found->second.name;
  const auto& children = found->second.children;
  const auto one = std::find_if(children.begin(), children.end(),
                                [&](const Installed& item) { return item.own && item.handle == child; });
  if (one == children.end()) return {};
  return one->name.empty() ? found->second.name : one->name;
}

}  // namespace sim
