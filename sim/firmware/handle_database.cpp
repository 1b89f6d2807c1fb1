#include "sim/firmware/handle_database.h"

#include <fmt/format.h>

#include <algorithm>

#include "sim/firmware/device_path_builder.h"
#include "sim/firmware/guid_text.h"
#include "sim/firmware/machine.h"

namespace sim {
namespace {

constexpr UINT32 kByDriver = EFI_OPEN_PROTOCOL_BY_DRIVER;
constexpr UINT32 kExclusive = EFI_OPEN_PROTOCOL_EXCLUSIVE;
constexpr UINT32 kByChild = EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER;

bool IsKnownMode(UINT32 attributes) {
  switch (attributes) {
    case EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL:
    case EFI_OPEN_PROTOCOL_GET_PROTOCOL:
    case EFI_OPEN_PROTOCOL_TEST_PROTOCOL:
    case kByChild:
    case kByDriver:
    case kExclusive:
    case kByDriver | kExclusive:
      return true;
    default:
      return false;
  }
}

}  // namespace

const HandleDatabase::Interfaces* HandleDatabase::InterfacesOf(EFI_HANDLE handle) const {
  const auto found = handles_.find(handle);
  return found == handles_.end() ? nullptr : &found->second;
}

const HandleDatabase::Interface* HandleDatabase::Find(EFI_HANDLE handle, const EFI_GUID& guid) const {
  const Interfaces* interfaces = InterfacesOf(handle);
  if (interfaces == nullptr) {
    return nullptr;
  }
  const auto found = std::find_if(interfaces->begin(), interfaces->end(),
                                  [&guid](const Interface& interface) { return interface.guid == guid; });
  return found == interfaces->end() ? nullptr : &*found;
}

HandleDatabase::Interface* HandleDatabase::Mutable(EFI_HANDLE handle, const EFI_GUID& guid) {
  return const_cast<Interface*>(Find(handle, guid));
}

std::vector<EFI_HANDLE> HandleDatabase::With(const EFI_GUID& guid) const {
  const HandleIndex::Carriers& carriers = index_.With(guid);
  std::vector<EFI_HANDLE> handles;
  handles.reserve(carriers.size());
  for (const auto& [sequence, handle] : carriers) {
    handles.push_back(handle);
  }
  return handles;
}

EFI_STATUS HandleDatabase::Install(EFI_HANDLE* handle, const EFI_GUID* guid, void* pointer) {
  if (handle == nullptr || guid == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_GUID copy = *guid;
  if (*handle != nullptr && (!Exists(*handle) || Find(*handle, copy) != nullptr)) {
    return EFI_INVALID_PARAMETER;
  }
  if (*handle == nullptr) {
    if (machine_.Arena().Full()) {
      return EFI_OUT_OF_RESOURCES;
    }
    *handle = machine_.Arena().Allocate();
    order_.push_back(*handle);
  }
  handles_[*handle].push_back({copy, pointer, ++sequence_, {}});
  index_.Add(*handle, copy, pointer, sequence_);
  Notify(*handle, copy);
  return EFI_SUCCESS;
}

bool HandleDatabase::HasDevicePath(const EFI_DEVICE_PATH_PROTOCOL* path) const {
  const DevicePath wanted = DevicePath::Copy(path);
  bool valid = false;
  const std::size_t size = FirstInstanceSize(wanted.Get(), valid);
  const std::vector<EFI_HANDLE>& alike = index_.AtPath(wanted.Bytes().first(size));
  return !wanted.Empty() && std::any_of(alike.begin(), alike.end(), [&](EFI_HANDLE handle) {
    return DevicePath::Copy(Get<EFI_DEVICE_PATH_PROTOCOL>(handle)) == wanted;
  });
}

const EFI_GUID* HandleDatabase::Lasting(const EFI_GUID& guid) {
  const auto found = std::find(guids_.begin(), guids_.end(), guid);
  return found != guids_.end() ? &*found : &guids_.emplace_back(guid);
}

void HandleDatabase::Notify(EFI_HANDLE handle, const EFI_GUID& guid) {
  const AcrossCalls<std::vector<EFI_EVENT>> kept(machine_.Held());
  std::vector<EFI_EVENT>& events = *kept;
  for (Registration& registration : registrations_) {
    if (registration.guid == guid) {
      // Reinstalled before anybody asked: the handle is found once, at its new place.
      registration.fresh.remove(handle);
      registration.fresh.push_back(handle);
      events.push_back(registration.event);
    }
  }
  if (events.empty()) {
    return;
  }
  // All of them are signalled before any runs, so that a notification cannot hide the installation from another.
  const EFI_TPL old = machine_.Events().CurrentTpl();
  const EFI_TPL raised = std::max(old, TPL_NOTIFY);
  machine_.Events().Raise(raised);
  for (const EFI_EVENT event : events) {
    machine_.Events().Signal(event);
  }
  machine_.Events().Restore(old);
}

bool HandleDatabase::ReleaseFrom(EFI_HANDLE handle, const EFI_GUID& guid, EFI_HANDLE driver) {
  if (EFI_ERROR(machine_.DisconnectController(handle, driver, nullptr))) {
    return false;
  }
  // A driver may answer that it stopped and keep the interface open all the same.
  const Interface* interface = Find(handle, guid);
  return interface == nullptr ||
         std::none_of(interface->opens.begin(), interface->opens.end(), [driver](const Open& open) {
           return open.agent == driver && (open.attributes & kByDriver) != 0;
         });
}

bool HandleDatabase::Release(EFI_HANDLE handle, const EFI_GUID& guid) {
  for (;;) {
    const Interface* interface = Find(handle, guid);
    if (interface == nullptr) {
      return true;
    }
    const auto driver = std::find_if(interface->opens.begin(), interface->opens.end(),
                                     [](const Open& open) { return (open.attributes & kByDriver) != 0; });
    if (driver == interface->opens.end()) {
      break;
    }
    if (!ReleaseFrom(handle, guid, driver->agent)) {
      return false;
    }
  }
  const Interface* interface = Find(handle, guid);
  return std::none_of(interface->opens.begin(), interface->opens.end(),
                      [](const Open& open) { return (open.attributes & (kByChild | kExclusive)) != 0; });
}

void HandleDatabase::RemoveInterface(EFI_HANDLE handle, const EFI_GUID& guid) {
  Interfaces& interfaces = handles_[handle];
  if (const Interface* interface = Find(handle, guid); interface != nullptr) {
    index_.Remove(handle, guid, interface->sequence);
  }
  interfaces.remove_if([&guid](const Interface& interface) { return interface.guid == guid; });
  for (Registration& registration : registrations_) {
    if (registration.guid == guid) {
      registration.fresh.remove(handle);
    }
  }
  if (interfaces.empty()) {
    handles_.erase(handle);
    order_.erase(std::remove(order_.begin(), order_.end(), handle), order_.end());
  }
}

EFI_STATUS HandleDatabase::Uninstall(EFI_HANDLE handle, const EFI_GUID* guid, void* pointer) {
  if (guid == nullptr || !Exists(handle)) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_GUID copy = *guid;
  const Interface* interface = Find(handle, copy);
  if (interface == nullptr || interface->pointer != pointer) {
    return EFI_NOT_FOUND;
  }
  if (!Release(handle, copy)) {
    // Whoever let go gets the device back.
    machine_.ConnectController(handle, nullptr, nullptr, true);
    return EFI_ACCESS_DENIED;
  }
  if (Find(handle, copy) != nullptr) {
    RemoveInterface(handle, copy);
  }
  return EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::Reinstall(EFI_HANDLE handle, const EFI_GUID* guid, void* oldPointer, void* newPointer) {
  if (guid == nullptr || !Exists(handle)) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_GUID copy = *guid;
  const Interface* interface = Find(handle, copy);
  if (interface == nullptr || interface->pointer != oldPointer) {
    return EFI_NOT_FOUND;
  }
  if (!Release(handle, copy)) {
    machine_.ConnectController(handle, nullptr, nullptr, true);
    return EFI_ACCESS_DENIED;
  }
  Interface* present = Mutable(handle, copy);
  if (present == nullptr) {
    return EFI_NOT_FOUND;
  }
  index_.Remove(handle, copy, present->sequence);
  present->pointer = newPointer;
  present->sequence = ++sequence_;
  index_.Add(handle, copy, newPointer, sequence_);
  Notify(handle, copy);
  machine_.ConnectController(handle, nullptr, nullptr, true);
  return EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::CheckOpen(Interface& interface, EFI_HANDLE handle, EFI_HANDLE agent, UINT32 attributes) {
  bool exclusive = false;
  bool otherDriver = false;
  EFI_HANDLE driver = nullptr;
  for (const Open& open : interface.opens) {
    if (open.agent == agent && open.attributes == attributes && (attributes & kByDriver) != 0) {
      return EFI_ALREADY_STARTED;
    }
    exclusive |= (open.attributes & kExclusive) != 0;
    if ((open.attributes & kByDriver) != 0) {
      otherDriver = true;
      driver = open.agent;
    }
  }
  if ((attributes & (kByDriver | kExclusive)) == 0) {
    return EFI_SUCCESS;
  }
  if (exclusive || (attributes == kByDriver && otherDriver)) {
    return EFI_ACCESS_DENIED;
  }
  const EFI_GUID guid = interface.guid;  // the interface may go with its driver
  return otherDriver && !ReleaseFrom(handle, guid, driver) ? EFI_ACCESS_DENIED : EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::OpenProtocol(EFI_HANDLE handle, const EFI_GUID* guid, void** pointer, EFI_HANDLE agent,
                                        EFI_HANDLE controller, UINT32 attributes) {
  if (guid == nullptr || !Exists(handle) || !IsKnownMode(attributes) ||
      (pointer == nullptr && attributes != EFI_OPEN_PROTOCOL_TEST_PROTOCOL)) {
    return EFI_INVALID_PARAMETER;
  }
  if (attributes == EFI_OPEN_PROTOCOL_TEST_PROTOCOL) {
    pointer = nullptr;  // the standard has it ignored
  }
  const bool byDriver = (attributes & kByDriver) != 0;
  const bool byChild = attributes == kByChild;
  const bool needsAgent = byDriver || byChild || attributes == kExclusive;
  if ((needsAgent && !Exists(agent)) || ((byDriver || byChild) && !Exists(controller)) ||
      (byChild && controller == handle)) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_GUID copy = *guid;
  Interface* interface = Mutable(handle, copy);
  if (interface == nullptr) {
    if (pointer != nullptr) {
      *pointer = nullptr;
    }
    return EFI_UNSUPPORTED;
  }
  const EFI_STATUS status = CheckOpen(*interface, handle, agent, attributes);
  interface = Mutable(handle, copy);  // a driver that let go may have changed or removed it
  if (interface == nullptr) {
    return EFI_UNSUPPORTED;
  }
  if (pointer != nullptr && (!EFI_ERROR(status) || status == EFI_ALREADY_STARTED)) {
    *pointer = interface->pointer;
  }
  if (EFI_ERROR(status)) {
    return status;
  }
  if (!Exists(agent)) {
    return EFI_SUCCESS;  // an open that nobody can close is not recorded
  }
  for (Open& open : interface->opens) {
    if (open.agent == agent && open.controller == controller && open.attributes == attributes) {
      ++open.count;
      return EFI_SUCCESS;
    }
  }
  interface->opens.push_back({agent, controller, attributes, 1});
  return EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::CloseProtocol(EFI_HANDLE handle, const EFI_GUID* guid, EFI_HANDLE agent,
                                         EFI_HANDLE controller) {
  if (guid == nullptr || !Exists(handle) || !Exists(agent) || (controller != nullptr && !Exists(controller))) {
    return EFI_INVALID_PARAMETER;
  }
  Interface* interface = Mutable(handle, *guid);
  const std::size_t before = interface == nullptr ? 0 : interface->opens.size();
  if (interface != nullptr) {
    interface->opens.remove_if([&](const Open& open) { return open.agent == agent && open.controller == controller; });
  }
  if (interface == nullptr || interface->opens.size() == before) {
    machine_.Counts().Complain(fmt::format("CloseProtocol of {} that was not open", GuidText(*guid)));
    return EFI_NOT_FOUND;
  }
  return EFI_SUCCESS;
}

EFI_STATUS HandleDatabase::RegisterNotify(const EFI_GUID* guid, EFI_EVENT event, void** registration) {
  if (guid == nullptr || registration == nullptr || !machine_.Events().Exists(event)) {
    return EFI_INVALID_PARAMETER;
  }
  if (machine_.Arena().Full()) {
    return EFI_OUT_OF_RESOURCES;
  }
  Registration made{machine_.Arena().Allocate(), *guid, event, {}};
  *registration = made.key;
  registrations_.push_back(std::move(made));
  return EFI_SUCCESS;
}

void HandleDatabase::ForgetEvent(EFI_EVENT event) {
  registrations_.remove_if([event](const Registration& registration) { return registration.event == event; });
}

bool HandleDatabase::IsRegistration(void* registration) const {
  return std::any_of(registrations_.begin(), registrations_.end(),
                     [registration](const Registration& known) { return known.key == registration; });
}

EFI_HANDLE HandleDatabase::NextRegistered(void* registration) {
  for (Registration& known : registrations_) {
    if (known.key == registration && !known.fresh.empty()) {
      const EFI_HANDLE handle = known.fresh.front();
      known.fresh.pop_front();
      return handle;
    }
  }
  return nullptr;
}

EFI_STATUS HandleDatabase::LocateDevicePath(const EFI_GUID* guid, EFI_DEVICE_PATH_PROTOCOL** path,
                                            EFI_HANDLE* device) const {
  if (guid == nullptr || path == nullptr || *path == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  bool valid = false;
  const std::size_t size = FirstInstanceSize(*path, valid);
  if (!valid) {
    return EFI_INVALID_PARAMETER;
  }
  // The longest path that the wanted one begins with, at each of its node boundaries from the last one back.
  std::vector<std::size_t> boundaries{0};
  const auto* bytes = reinterpret_cast<const std::byte*>(*path);
  while (boundaries.back() < size) {
    const auto* node = reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(bytes + boundaries.back());
    boundaries.push_back(boundaries.back() + (node->Length[0] | node->Length[1] << 8));
  }
  EFI_HANDLE best = nullptr;
  while (best == nullptr && !boundaries.empty()) {
    best = FirstAt({bytes, boundaries.back()}, *guid);
    if (best == nullptr) {
      boundaries.pop_back();
    }
  }
  if (best == nullptr) {
    return EFI_NOT_FOUND;
  }
  if (device == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  *device = best;
  *path = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(reinterpret_cast<std::byte*>(*path) + boundaries.back());
  return EFI_SUCCESS;
}

EFI_HANDLE HandleDatabase::FirstAt(std::span<const std::byte> nodes, const EFI_GUID& guid) const {
  EFI_HANDLE first = nullptr;
  std::uint64_t sequence = 0;
  for (const EFI_HANDLE handle : index_.AtPath(nodes)) {
    const Interface* interface = Find(handle, guid);
    if (interface != nullptr && (first == nullptr || interface->sequence < sequence)) {
      first = handle;
      sequence = interface->sequence;
    }
  }
  return first;
}

EFI_STATUS HandleDatabase::LocateProtocol(const EFI_GUID* guid, void* registration, void** pointer) {
  if (pointer == nullptr || guid == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  *pointer = nullptr;
  if (registration != nullptr) {
    for (const Registration& known : registrations_) {
      if (known.key == registration && known.guid == *guid) {
        const Interface* interface = Find(NextRegistered(registration), *guid);
        *pointer = interface == nullptr ? nullptr : interface->pointer;
        return interface == nullptr ? EFI_NOT_FOUND : EFI_SUCCESS;
      }
    }
    return EFI_NOT_FOUND;
  }
  const HandleIndex::Carriers& carriers = index_.With(*guid);
  if (carriers.empty()) {
    return EFI_NOT_FOUND;
  }
  *pointer = Find(carriers.front().second, *guid)->pointer;
  return EFI_SUCCESS;
}

}  // namespace sim
