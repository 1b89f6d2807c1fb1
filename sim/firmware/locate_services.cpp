// Handles and protocols found (UEFI 2.10, 7.3).
#include "sim/firmware/service_call.h"

namespace sim {
namespace {

EFI_STATUS EFIAPI RegisterProtocolNotify(const EFI_GUID* guid, EFI_EVENT event, VOID** registration) {
  Trace("notify of {} by {}", Named(guid), fmt::ptr(event));
  return Call("RegisterProtocolNotify", [&] { return M().Handles().RegisterNotify(guid, event, registration); });
}

// The handles of a search in order; the status is that of LocateHandle with room enough.
EFI_STATUS Search(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID* key, std::vector<EFI_HANDLE>& found) {
  switch (type) {
    case AllHandles:
      found = M().Handles().All();
      break;
    case ByProtocol:
      if (guid == nullptr) {
        return EFI_INVALID_PARAMETER;
      }
      found = M().Handles().With(*guid);
      break;
    case ByRegisterNotify:
      if (key == nullptr || !M().Handles().IsRegistration(key)) {
        return EFI_INVALID_PARAMETER;
      }
      if (const EFI_HANDLE next = M().Handles().NextRegistered(key); next != nullptr) {
        found.push_back(next);
      }
      break;
    default:
      return EFI_INVALID_PARAMETER;
  }
  return found.empty() ? EFI_NOT_FOUND : EFI_SUCCESS;
}

EFI_STATUS EFIAPI LocateHandle(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID* key, UINTN* size,
                               EFI_HANDLE* buffer) {
  return Call("LocateHandle", [&]() -> EFI_STATUS {
    if (size == nullptr || (*size != 0 && buffer == nullptr)) {
      return EFI_INVALID_PARAMETER;
    }
    // A registration gives one handle a call, and only to a caller who has room for it.
    if (type == ByRegisterNotify && *size < sizeof(EFI_HANDLE)) {
      *size = sizeof(EFI_HANDLE);
      return M().Handles().IsRegistration(key) ? EFI_BUFFER_TOO_SMALL : EFI_INVALID_PARAMETER;
    }
    std::vector<EFI_HANDLE> found;
    const EFI_STATUS status = Search(type, guid, key, found);
    if (EFI_ERROR(status)) {
      return status;
    }
    const UINTN room = *size;
    *size = found.size() * sizeof(EFI_HANDLE);
    if (room < *size) {
      return EFI_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, found.data(), *size);
    return EFI_SUCCESS;
  });
}

EFI_STATUS EFIAPI LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID* key, UINTN* count,
                                     EFI_HANDLE** buffer) {
  return Call("LocateHandleBuffer", [&]() -> EFI_STATUS {
    if (count == nullptr || buffer == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *count = 0;
    *buffer = nullptr;
    std::vector<EFI_HANDLE> found;
    EFI_STATUS status = Search(type, guid, key, found);
    if (!EFI_ERROR(status)) {
      status = PoolCopy(found, buffer);
    }
    *count = EFI_ERROR(status) ? 0 : found.size();
    return status;
  });
}

EFI_STATUS EFIAPI LocateDevicePath(const EFI_GUID* guid, EFI_DEVICE_PATH_PROTOCOL** path, EFI_HANDLE* device) {
  return Call("LocateDevicePath", [&] { return M().Handles().LocateDevicePath(guid, path, device); });
}
EFI_STATUS EFIAPI LocateProtocol(const EFI_GUID* guid, VOID* registration, VOID** interface) {
  return Call("LocateProtocol", [&] { return M().Handles().LocateProtocol(guid, registration, interface); });
}

}  // namespace

void FillLocateServices(EFI_BOOT_SERVICES& table) {
  table.RegisterProtocolNotify = RegisterProtocolNotify;
  table.LocateHandle = LocateHandle;
  table.LocateHandleBuffer = LocateHandleBuffer;
  table.LocateDevicePath = LocateDevicePath;
  table.LocateProtocol = LocateProtocol;
}

}  // namespace sim
