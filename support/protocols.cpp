#include "support/protocols.h"

#include "platform/device_path.h"

namespace bds {

bool HasProtocol(EFI_HANDLE handle, const EFI_GUID& guid) {
  void* interface = nullptr;
  return handle != nullptr && !EFI_ERROR(BootServices()->HandleProtocol(handle, &guid, &interface));
}

EFI_STATUS HandleBuffer::Locate(const EFI_GUID& guid) { return Fill(ByProtocol, &guid); }

EFI_STATUS HandleBuffer::LocateAll() { return Fill(AllHandles, nullptr); }

EFI_STATUS HandleBuffer::Fill(UINT32 searchType, const EFI_GUID* guid) {
  count_ = 0;
  UINTN count = 0;
  const EFI_STATUS status = WatchedStatus(BootServices()->LocateHandleBuffer(
      static_cast<EFI_LOCATE_SEARCH_TYPE>(searchType), guid, nullptr, &count, handles_.put()));
  if (!EFI_ERROR(status) && handles_) {
    count_ = count;
  }
  return status;
}

const EFI_DEVICE_PATH_PROTOCOL* DevicePathOf(EFI_HANDLE handle) {
  return HandleProtocol<EFI_DEVICE_PATH_PROTOCOL>(handle);
}

}  // namespace bds
