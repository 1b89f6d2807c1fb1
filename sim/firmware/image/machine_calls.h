// The few things that the image services ask of the machine, uncounted: the simulator's own work is no service call of
// the software under test.
#pragma once

#include <vector>

#include "sim/firmware/machine.h"

namespace sim {

inline constexpr std::uint64_t kImagePageSize = 4096;

class MachineCalls {
 public:
  explicit MachineCalls(Machine& machine) : machine_(machine) {}

  EFI_STATUS Install(EFI_HANDLE* handle, const EFI_GUID& protocol, void* interface) {
    return machine_.Handles().Install(handle, &protocol, interface);
  }
  void Uninstall(EFI_HANDLE handle, const EFI_GUID& protocol, void* interface) {
    static_cast<void>(machine_.Handles().Uninstall(handle, &protocol, interface));
  }
  // Closes everything that an image still has open.
  void CloseAllOf(EFI_HANDLE agent) {
    for (const EFI_HANDLE handle : machine_.Handles().All()) {
      for (const OpenedByAgent& each : OpenedBy(agent, handle)) {
        static_cast<void>(machine_.Handles().CloseProtocol(handle, &each.protocol, agent, each.controller));
      }
    }
  }
  void SignalGroup(const EFI_GUID& group) { machine_.Events().SignalGroup(group); }

  EFI_STATUS AllocateLowPages(EFI_MEMORY_TYPE type, UINTN pages, EFI_PHYSICAL_ADDRESS* address) {
    *address = 0xFFFFFFFF;
    return machine_.Pages().Allocate(AllocateMaxAddress, type, pages, address);
  }
  // Undoes the pages' protection too.
  void FreePages(EFI_PHYSICAL_ADDRESS address, UINTN pages) {
    static_cast<void>(machine_.Pages().Free(address, pages));
  }
  UINTN MapKey() { return machine_.Pages().MapKey(); }

 private:
  struct OpenedByAgent {
    EFI_GUID protocol;
    EFI_HANDLE controller;
  };
  std::vector<OpenedByAgent> OpenedBy(EFI_HANDLE agent, EFI_HANDLE handle) {
    std::vector<OpenedByAgent> found;
    const HandleDatabase::Interfaces* interfaces = machine_.Handles().InterfacesOf(handle);
    if (interfaces == nullptr) {
      return found;
    }
    for (const HandleDatabase::Interface& interface : *interfaces) {
      for (const HandleDatabase::Open& open : interface.opens) {
        if (open.agent == agent) {
          found.push_back({interface.guid, open.controller});
        }
      }
    }
    return found;
  }

  Machine& machine_;
};

}  // namespace sim
