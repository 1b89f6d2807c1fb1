// The handle database (UEFI 2.10, 7.3): handles, their protocol interfaces, and who has each interface open.
#pragma once

#include <cstdint>
#include <list>
#include <span>
#include <unordered_map>
#include <vector>

#include "platform/boot_services.h"
#include "sim/firmware/handle_index.h"

namespace sim {

class Machine;

class HandleDatabase {
 public:
  struct Open {
    EFI_HANDLE agent = nullptr;
    EFI_HANDLE controller = nullptr;
    UINT32 attributes = 0;
    UINT32 count = 1;
  };
  struct Interface {
    EFI_GUID guid;
    void* pointer = nullptr;
    std::uint64_t sequence = 0;  // order of installation over the whole database
    std::list<Open> opens;
  };
  using Interfaces = std::list<Interface>;

  explicit HandleDatabase(Machine& machine) : machine_(machine) {}

  // The services of the same names, with the standard's checks and status codes.
  EFI_STATUS Install(EFI_HANDLE* handle, const EFI_GUID* guid, void* pointer);
  EFI_STATUS Reinstall(EFI_HANDLE handle, const EFI_GUID* guid, void* oldPointer, void* newPointer);
  EFI_STATUS Uninstall(EFI_HANDLE handle, const EFI_GUID* guid, void* pointer);
  EFI_STATUS OpenProtocol(EFI_HANDLE handle, const EFI_GUID* guid, void** pointer, EFI_HANDLE agent,
                          EFI_HANDLE controller, UINT32 attributes);
  EFI_STATUS CloseProtocol(EFI_HANDLE handle, const EFI_GUID* guid, EFI_HANDLE agent, EFI_HANDLE controller);
  EFI_STATUS RegisterNotify(const EFI_GUID* guid, EFI_EVENT event, void** registration);
  EFI_STATUS LocateDevicePath(const EFI_GUID* guid, EFI_DEVICE_PATH_PROTOCOL** path, EFI_HANDLE* device) const;
  EFI_STATUS LocateProtocol(const EFI_GUID* guid, void* registration, void** pointer);

  bool Exists(EFI_HANDLE handle) const { return handles_.contains(handle); }
  // Null when the handle is unknown.
  const Interfaces* InterfacesOf(EFI_HANDLE handle) const;
  const Interface* Find(EFI_HANDLE handle, const EFI_GUID& guid) const;
  // All handles in the order of their creation.
  std::vector<EFI_HANDLE> All() const { return order_; }
  // Handles that carry the protocol, in the order in which it was installed on them.
  std::vector<EFI_HANDLE> With(const EFI_GUID& guid) const;
  // The next handle of a registration, taken off its queue; null when there is none.
  EFI_HANDLE NextRegistered(void* registration);
  // True when another handle carries an equal device path (UEFI 2.10, 7.3.18: InstallMultipleProtocolInterfaces).
  bool HasDevicePath(const EFI_DEVICE_PATH_PROTOCOL* path) const;
  // The same GUID at an address that lasts as long as the machine.
  const EFI_GUID* Lasting(const EFI_GUID& guid);
  bool IsRegistration(void* registration) const;

  // An event was closed: registrations for it end.
  void ForgetEvent(EFI_EVENT event);

  template <typename Type>
  Type* Get(EFI_HANDLE handle) const {
    const Interface* interface = Find(handle, ProtocolGuid<Type>);
    return interface == nullptr ? nullptr : static_cast<Type*>(interface->pointer);
  }

 private:
  struct Registration {
    void* key;
    EFI_GUID guid;
    EFI_EVENT event;
    std::list<EFI_HANDLE> fresh;
  };
  Interface* Mutable(EFI_HANDLE handle, const EFI_GUID& guid);
  EFI_STATUS CheckOpen(Interface& interface, EFI_HANDLE handle, EFI_HANDLE agent, UINT32 attributes);
  // Disconnects whoever has the interface open by driver; false when somebody keeps it.
  bool Release(EFI_HANDLE handle, const EFI_GUID& guid);
  // The same for one driver, given by its binding's handle.
  bool ReleaseFrom(EFI_HANDLE handle, const EFI_GUID& guid, EFI_HANDLE driver);
  void Notify(EFI_HANDLE handle, const EFI_GUID& guid);
  // The first that the protocol was installed on of the handles whose device path has just these nodes; null: none.
  EFI_HANDLE FirstAt(std::span<const std::byte> nodes, const EFI_GUID& guid) const;
  void RemoveInterface(EFI_HANDLE handle, const EFI_GUID& guid);

  Machine& machine_;
  std::unordered_map<EFI_HANDLE, Interfaces> handles_;
  HandleIndex index_;
  std::vector<EFI_HANDLE> order_;
  std::list<Registration> registrations_;
  std::list<EFI_GUID> guids_;
  std::uint64_t sequence_ = 0;
};

}  // namespace sim
