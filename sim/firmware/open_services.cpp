// Protocols opened and closed, and who has what open (UEFI 2.10, 7.3).
#include "sim/firmware/service_call.h"

namespace sim {
namespace {

EFI_STATUS EFIAPI HandleProtocol(EFI_HANDLE handle, const EFI_GUID* guid, VOID** interface) {
  return Call("HandleProtocol", [&] {
    return M().Handles().OpenProtocol(handle, guid, interface, nullptr, nullptr, EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL);
  });
}

EFI_STATUS EFIAPI OpenProtocol(EFI_HANDLE handle, const EFI_GUID* guid, VOID** interface, EFI_HANDLE agent,
                               EFI_HANDLE controller, UINT32 attributes) {
  return Call("OpenProtocol",
              [&] { return M().Handles().OpenProtocol(handle, guid, interface, agent, controller, attributes); });
}
EFI_STATUS EFIAPI CloseProtocol(EFI_HANDLE handle, const EFI_GUID* guid, EFI_HANDLE agent, EFI_HANDLE controller) {
  return Call("CloseProtocol", [&] { return M().Handles().CloseProtocol(handle, guid, agent, controller); });
}

EFI_STATUS EFIAPI OpenProtocolInformation(EFI_HANDLE handle, const EFI_GUID* guid,
                                          EFI_OPEN_PROTOCOL_INFORMATION_ENTRY** buffer, UINTN* count) {
  return Call("OpenProtocolInformation", [&]() -> EFI_STATUS {
    if (guid == nullptr || buffer == nullptr || count == nullptr || !M().Handles().Exists(handle)) {
      return EFI_INVALID_PARAMETER;
    }
    const auto* interface = M().Handles().Find(handle, *guid);
    if (interface == nullptr) {
      return EFI_NOT_FOUND;
    }
    std::vector<EFI_OPEN_PROTOCOL_INFORMATION_ENTRY> entries;
    for (const HandleDatabase::Open& open : interface->opens) {
      entries.push_back({open.agent, open.controller, open.attributes, open.count});
    }
    *count = entries.size();
    return PoolCopy(entries, buffer);
  });
}

EFI_STATUS EFIAPI ProtocolsPerHandle(EFI_HANDLE handle, EFI_GUID*** buffer, UINTN* count) {
  return Call("ProtocolsPerHandle", [&]() -> EFI_STATUS {
    const auto* interfaces = M().Handles().InterfacesOf(handle);
    if (buffer == nullptr || count == nullptr || interfaces == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    std::vector<EFI_GUID*> guids;
    for (const HandleDatabase::Interface& interface : *interfaces) {
      guids.push_back(const_cast<EFI_GUID*>(M().Handles().Lasting(interface.guid)));
    }
    *count = guids.size();
    return PoolCopy(guids, buffer);
  });
}

}  // namespace

void FillOpenServices(EFI_BOOT_SERVICES& table) {
  table.HandleProtocol = HandleProtocol;
  table.OpenProtocol = OpenProtocol;
  table.CloseProtocol = CloseProtocol;
  table.OpenProtocolInformation = OpenProtocolInformation;
  table.ProtocolsPerHandle = ProtocolsPerHandle;
}

}  // namespace sim
