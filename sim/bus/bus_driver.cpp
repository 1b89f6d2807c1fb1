// The driver model's bookkeeping (UEFI 2.10, 11.1): open by driver, children opened by child controller, all undone
// in reverse.
#include "sim/bus/bus_driver.h"

#include <algorithm>
#include <string_view>

namespace sim {
namespace {

// RFC 4646 for the newer protocol, ISO 639-2 for the older one.
bool Speaks(const EFI_COMPONENT_NAME2_PROTOCOL*, std::string_view language) {
  return language == "en-US" || language == "en";
}
bool Speaks(const EFI_COMPONENT_NAME_PROTOCOL*, std::string_view language) { return language == "eng"; }

char kLanguages2[] = "en-US;en";
char kLanguages[] = "eng";

}  // namespace

BusDriver::BusDriver(EFI_BOOT_SERVICES& boot, BusContext context, BusDriverFacts facts)
    : boot_(boot), context_(std::move(context)), facts_(std::move(facts)) {
  binding_.object = this;
  names2_.object = this;
  names_.object = this;
  names2_.protocol = {.GetDriverName = GetDriverName<EFI_COMPONENT_NAME2_PROTOCOL>,
                      .GetControllerName = GetControllerName<EFI_COMPONENT_NAME2_PROTOCOL>,
                      .SupportedLanguages = kLanguages2};
  names_.protocol = {.GetDriverName = GetDriverName<EFI_COMPONENT_NAME_PROTOCOL>,
                     .GetControllerName = GetControllerName<EFI_COMPONENT_NAME_PROTOCOL>,
                     .SupportedLanguages = kLanguages};
  binding_.protocol = {.Supported = Supported,
                       .Start = Start,
                       .Stop = Stop,
                       .Version = facts_.version,
                       .ImageHandle = nullptr,
                       .DriverBindingHandle = nullptr};
  for (const Interface& item : {InterfaceOf(names2_.protocol), InterfaceOf(names_.protocol)}) {
    (void)boot_.InstallProtocolInterface(&handle_, &item.guid, EFI_NATIVE_INTERFACE, item.pointer);
  }
  binding_.protocol.ImageHandle = binding_.protocol.DriverBindingHandle = handle_;
  const Interface binding = InterfaceOf(binding_.protocol);
  (void)boot_.InstallProtocolInterface(&handle_, &binding.guid, EFI_NATIVE_INTERFACE, binding.pointer);
}

BusDriver::~BusDriver() = default;

std::u16string BusDriver::ControllerName(void*) const { return {}; }

EFI_STATUS BusDriver::OpenConsumed(EFI_HANDLE controller, UINT32 attributes, EFI_HANDLE child, void** interface) {
  return boot_.OpenProtocol(controller, &facts_.consumed, interface, handle_, child, attributes);
}

void BusDriver::CloseConsumed(EFI_HANDLE controller, EFI_HANDLE child) {
  (void)boot_.CloseProtocol(controller, &facts_.consumed, handle_, child);
}

EFI_STATUS EFIAPI BusDriver::Supported(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller,
                                       EFI_DEVICE_PATH_PROTOCOL*) {
  BusDriver& driver = Backed<EFI_DRIVER_BINDING_PROTOCOL, BusDriver>::From(self);
  void* consumed = nullptr;
  const EFI_STATUS status = driver.OpenConsumed(controller, EFI_OPEN_PROTOCOL_BY_DRIVER, controller, &consumed);
  if (EFI_ERROR(status)) return status;
  const bool serves = driver.Serves(consumed);
  driver.CloseConsumed(controller, controller);
  return serves ? EFI_SUCCESS : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI BusDriver::Start(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller,
                                   EFI_DEVICE_PATH_PROTOCOL*) {
  // Everything on the controller is made at once, whatever path remains: a caller that asks for one child finds it.
  BusDriver& driver = Backed<EFI_DRIVER_BINDING_PROTOCOL, BusDriver>::From(self);
  Running running;
  EFI_STATUS status = driver.OpenConsumed(controller, EFI_OPEN_PROTOCOL_BY_DRIVER, controller, &running.consumed);
  if (EFI_ERROR(status)) return status;
  status = driver.StartController(controller, running);
  if (EFI_ERROR(status)) {
    for (Installed& child : running.children) (void)driver.RemoveChild(controller, child);
    driver.CloseConsumed(controller, controller);
    return status;
  }
  driver.running_[controller] = std::move(running);
  return EFI_SUCCESS;
}

EFI_STATUS BusDriver::StartController(EFI_HANDLE controller, Running& running) {
  void* path = nullptr;
  const EFI_GUID pathGuid = ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>;
  EFI_STATUS status =
      boot_.OpenProtocol(controller, &pathGuid, &path, handle_, controller, EFI_OPEN_PROTOCOL_GET_PROTOCOL);
  if (EFI_ERROR(status)) return status;
  std::vector<BusChild> children;
  status = Enumerate(running.consumed, DevicePath::Copy(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(path)), children);
  if (EFI_ERROR(status)) return status;
  if (children.empty() && facts_.needsChild) return EFI_NOT_FOUND;
  running.name = ControllerName(running.consumed);
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
    status = boot_.InstallProtocolInterface(&installed.handle, &item.guid, EFI_NATIVE_INTERFACE, item.pointer);
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
    if (!EFI_ERROR(boot_.UninstallProtocolInterface(child.handle, &item.guid, item.pointer))) continue;
    for (std::size_t back = left; back < child.interfaces.size(); ++back) {
      const Interface& lost = child.interfaces[back];
      (void)boot_.InstallProtocolInterface(&child.handle, &lost.guid, EFI_NATIVE_INTERFACE, lost.pointer);
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

EFI_STATUS EFIAPI BusDriver::Stop(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, UINTN childCount,
                                  EFI_HANDLE* handles) {
  BusDriver& driver = Backed<EFI_DRIVER_BINDING_PROTOCOL, BusDriver>::From(self);
  const auto found = driver.running_.find(controller);
  if (found == driver.running_.end()) return EFI_DEVICE_ERROR;
  std::vector<Installed>& children = found->second.children;
  const auto wanted = [&](const Installed& child) {
    if (childCount == 0) return true;
    return child.own && std::find(handles, handles + childCount, child.handle) != handles + childCount;
  };
  bool allGone = true;
  for (auto child = children.begin(); child != children.end();) {
    const bool removed = wanted(*child) && !EFI_ERROR(driver.RemoveChild(controller, *child));
    allGone = allGone && (removed || !wanted(*child));
    child = removed ? children.erase(child) : child + 1;
  }
  if (!allGone) return EFI_DEVICE_ERROR;
  if (childCount != 0) return EFI_SUCCESS;
  driver.CloseConsumed(controller, controller);
  driver.running_.erase(found);
  return EFI_SUCCESS;
}

template <typename Names>
EFI_STATUS EFIAPI BusDriver::GetDriverName(Names* self, const CHAR8* language, CHAR16** name) {
  if (language == nullptr || name == nullptr) return EFI_INVALID_PARAMETER;
  if (!Speaks(self, language)) return EFI_UNSUPPORTED;
  *name = Backed<Names, BusDriver>::From(self).facts_.name.data();
  return EFI_SUCCESS;
}

template <typename Names>
EFI_STATUS EFIAPI BusDriver::GetControllerName(Names* self, EFI_HANDLE controller, EFI_HANDLE child,
                                               const CHAR8* language, CHAR16** name) {
  if (language == nullptr || name == nullptr || controller == nullptr) return EFI_INVALID_PARAMETER;
  BusDriver& driver = Backed<Names, BusDriver>::From(self);
  const auto found = driver.running_.find(controller);
  if (!Speaks(self, language) || found == driver.running_.end()) return EFI_UNSUPPORTED;
  std::u16string* answer = &found->second.name;
  if (child != nullptr) {
    auto& children = found->second.children;
    const auto one = std::find_if(children.begin(), children.end(),
                                  [&](const Installed& item) { return item.own && item.handle == child; });
    if (one == children.end()) return EFI_UNSUPPORTED;
    if (!one->name.empty()) answer = &one->name;
  }
  if (answer->empty()) return EFI_UNSUPPORTED;
  *name = answer->data();
  return EFI_SUCCESS;
}

}  // namespace sim
