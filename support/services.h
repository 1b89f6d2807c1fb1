// The service tables that the entry point was given, kept where every directory can reach them.
#pragma once

#include <new>

#include "platform/system_table.h"

namespace bds {

// Written by the entry point before anything else runs; valid for the whole boot.
struct SERVICES_STATE {
  EFI_HANDLE ImageHandle = nullptr;
  EFI_SYSTEM_TABLE* SystemTable = nullptr;
  EFI_BOOT_SERVICES* BootServices = nullptr;
  EFI_RUNTIME_SERVICES* RuntimeServices = nullptr;
  const void* HobList = nullptr;   // hand-off block list of the configuration table; null when absent
  void* BootScriptSave = nullptr;  // boot-script save protocol; null when absent
  UINTN FailedAllocations = 0;     // of pool memory on this boot; read through PoolWatch
};
extern constinit SERVICES_STATE gServices;

inline EFI_BOOT_SERVICES* BootServices() { return gServices.BootServices; }
inline EFI_RUNTIME_SERVICES* RuntimeServices() { return gServices.RuntimeServices; }

// Remembers the image and its tables and finds the hand-off block list and the boot-script save protocol.
void InitializeServices(EFI_HANDLE imageHandle, EFI_SYSTEM_TABLE* systemTable);

// The table installed under a GUID in the configuration table; null when there is none.
[[nodiscard]] void* FindConfigurationTable(const EFI_GUID& guid);

// Gives a state record its initial values again without destroying what it held: the memory that an earlier
// boot's record points to belongs to that boot's machine.
template <typename State>
void StartFresh(State& state) {
  ::new (static_cast<void*>(&state)) State{};
}

}  // namespace bds
