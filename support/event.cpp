#include "support/event.h"

namespace bds {

void SignalEventGroup(const EFI_GUID& group) {
  Event event;
  if (!EFI_ERROR(event.CreateInGroup(group, EmptyNotify))) {
    static_cast<void>(BootServices()->SignalEvent(event.get()));
  }
}

EFI_STATUS NotifyOnProtocol(const EFI_GUID& guid, EFI_EVENT_NOTIFY notify, void* context, void** registration) {
  Event event;
  EFI_STATUS status = event.Create(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, notify, context);
  if (EFI_ERROR(status)) {
    return status;
  }
  void* key = nullptr;
  status = BootServices()->RegisterProtocolNotify(&guid, event.get(), &key);
  if (EFI_ERROR(status)) {
    return status;
  }
  static_cast<void>(event.release());
  if (registration != nullptr) {
    *registration = key;
  }
  return EFI_SUCCESS;
}

EFI_STATUS InstallNullProtocol(const EFI_GUID& guid, EFI_HANDLE* handle) {
  EFI_HANDLE newHandle = nullptr;
  const EFI_STATUS status =
      BootServices()->InstallProtocolInterface(&newHandle, &guid, EFI_NATIVE_INTERFACE, nullptr);
  if (handle != nullptr) {
    *handle = EFI_ERROR(status) ? nullptr : newHandle;
  }
  return status;
}

}  // namespace bds
