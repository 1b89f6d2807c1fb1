// The handle database (UEFI 2.10, 7.3): handles, the interfaces on them, who has opened them, and notifications of new
// ones. Everything is listed in the order of its installation, so that a boot finds devices in the same order each
// time.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <memory_resource>
#include <vector>

#include "platform/boot_services.h"
#include "sim/firmware/guid_text.h"

namespace sim {

class Machine;

class HandleDatabase {
 public:
  struct Open {
    EFI_HANDLE agent;
    EFI_HANDLE controller;
    UINT32 attributes;
    UINT32 count;
  };
  // Handle lists that live across calls into other code: the memory belongs to the machine (see Machine::Scratch).
  using HandleList = std::pmr::vector<EFI_HANDLE>;

  explicit HandleDatabase(Machine& machine);
  ~HandleDatabase();

  // The services, each with the statuses of the standard.
  EFI_STATUS Install(EFI_HANDLE* handle, const EFI_GUID* protocol, EFI_INTERFACE_TYPE type, VOID* interface);
  EFI_STATUS Reinstall(EFI_HANDLE handle, const EFI_GUID* protocol, VOID* oldInterface, VOID* newInterface);
  EFI_STATUS Uninstall(EFI_HANDLE handle, const EFI_GUID* protocol, VOID* interface);
  EFI_STATUS OpenProtocol(EFI_HANDLE handle, const EFI_GUID* protocol, VOID** interface, EFI_HANDLE agent,
                          EFI_HANDLE controller, UINT32 attributes);
  EFI_STATUS CloseProtocol(EFI_HANDLE handle, const EFI_GUID* protocol, EFI_HANDLE agent, EFI_HANDLE controller);
  EFI_STATUS OpenProtocolInformation(EFI_HANDLE handle, const EFI_GUID* protocol,
                                     EFI_OPEN_PROTOCOL_INFORMATION_ENTRY** entries, UINTN* count);
  EFI_STATUS ProtocolsPerHandle(EFI_HANDLE handle, EFI_GUID*** protocols, UINTN* count);
  EFI_STATUS LocateHandle(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* protocol, VOID* key, UINTN* size,
                          EFI_HANDLE* buffer);
  EFI_STATUS LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* protocol, VOID* key, UINTN* count,
                                EFI_HANDLE** buffer);
  EFI_STATUS LocateProtocol(const EFI_GUID* protocol, VOID* registration, VOID** interface);
  EFI_STATUS LocateDevicePath(const EFI_GUID* protocol, EFI_DEVICE_PATH_PROTOCOL** path, EFI_HANDLE* device);
  EFI_STATUS RegisterNotify(const EFI_GUID* protocol, EFI_EVENT event, VOID** registration);

  // For the simulator's own code: no counting, no opening.
  bool IsHandle(EFI_HANDLE handle) const { return Find(handle) != nullptr; }
  VOID* Interface(EFI_HANDLE handle, const EFI_GUID& protocol) const;
  template <typename T>
  T* Interface(EFI_HANDLE handle) const {
    return static_cast<T*>(Interface(handle, ProtocolGuid<T>));
  }
  HandleList HandlesWith(const EFI_GUID& protocol) const;
  HandleList AllHandles() const;
  std::vector<EFI_GUID> ProtocolsOn(EFI_HANDLE handle) const;
  // Who has opened that interface; empty when the handle does not have it.
  std::vector<Open> Opens(EFI_HANDLE handle, const EFI_GUID& protocol) const;
  // The handles that `agent` (null: any) opened interfaces of `controller` for as child controllers, each once.
  HandleList ChildrenOf(EFI_HANDLE controller, EFI_HANDLE agent = nullptr) const;
  // The agents that have an interface of `controller` open BY_DRIVER, each once.
  HandleList DriversOf(EFI_HANDLE controller) const;
  // Closes everything that `agent` still has open, as when an image is unloaded.
  void CloseAllOf(EFI_HANDLE agent);
  // Every interface installed: roots of the leak scan.
  std::vector<const VOID*> Interfaces() const;
  std::size_t Count() const { return handles_.size(); }

 private:
  struct Interface_;
  struct Handle;
  struct Protocol;
  struct Notify;

  Handle* Find(EFI_HANDLE handle) const;
  Handle* FindOrComplain(EFI_HANDLE handle, const char* service) const;
  Interface_* FindInterface(EFI_HANDLE handle, const EFI_GUID& protocol) const;
  Protocol& ProtocolOf(const EFI_GUID& guid);
  void Announce(Interface_& interface);
  EFI_STATUS CheckOpenArguments(EFI_HANDLE handle, const EFI_GUID* protocol, VOID** interface, EFI_HANDLE agent,
                                EFI_HANDLE controller, UINT32 attributes) const;
  EFI_STATUS ClaimForDriver(Interface_& interface, EFI_HANDLE agent, EFI_HANDLE controller, UINT32 attributes);
  EFI_STATUS ClaimExclusive(EFI_HANDLE handle, const EFI_GUID& protocol);
  bool DisconnectDriversOf(EFI_HANDLE handle, const EFI_GUID& protocol);
  EFI_STATUS Collect(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* protocol, VOID* key, HandleList& found);
  Interface_* NextFor(Notify& notify);
  Notify* FindNotify(VOID* registration);
  void RemoveNotifiesOf(EFI_EVENT event);

  Machine& machine_;
  std::map<std::size_t, std::unique_ptr<Handle>> handles_;  // by token number: the order of creation
  std::map<EFI_GUID, std::unique_ptr<Protocol>, GuidLess> protocols_;
  std::map<std::size_t, std::unique_ptr<Notify>> notifies_;
  std::uint64_t serial_ = 0;
};

}  // namespace sim
