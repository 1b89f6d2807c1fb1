// Typed access to the handle database: the interface type names its GUID.
#pragma once

#include <span>

#include "platform/uefi_base.h"
#include "support/pool.h"
#include "support/services.h"

namespace bds {

// The interface of type T on the handle. On failure the pointer is null and the service's status is returned.
template <typename T>
[[nodiscard]] EFI_STATUS OpenOn(EFI_HANDLE handle, T*& interface) {
  void* found = nullptr;
  const EFI_STATUS status = BootServices()->HandleProtocol(handle, &ProtocolGuid<T>, &found);
  interface = EFI_ERROR(status) ? nullptr : static_cast<T*>(found);
  return status;
}

// The same where only success matters: null when the handle does not carry it.
template <typename T>
[[nodiscard]] T* HandleProtocol(EFI_HANDLE handle) {
  T* interface = nullptr;
  static_cast<void>(handle != nullptr ? OpenOn(handle, interface) : EFI_INVALID_PARAMETER);
  return interface;
}

// True when the handle carries the protocol, whose interface may be null (marker protocols).
[[nodiscard]] bool HasProtocol(EFI_HANDLE handle, const EFI_GUID& guid);

// The first interface of type T in the handle database. On failure the pointer is null.
template <typename T>
[[nodiscard]] EFI_STATUS LocateProtocol(T*& interface) {
  void* found = nullptr;
  const EFI_STATUS status = BootServices()->LocateProtocol(&ProtocolGuid<T>, nullptr, &found);
  interface = EFI_ERROR(status) ? nullptr : static_cast<T*>(found);
  return status;
}
template <typename T>
[[nodiscard]] T* LocateProtocol() {
  T* interface = nullptr;
  static_cast<void>(LocateProtocol(interface));
  return interface;
}

// An owned array of handles, usable in a range-based for.
class HandleBuffer {
 public:
  HandleBuffer() = default;
  EFI_HANDLE* begin() const { return handles_.get(); }
  EFI_HANDLE* end() const { return handles_.get() + count_; }
  UINTN size() const { return count_; }
  bool empty() const { return count_ == 0; }
  EFI_HANDLE operator[](UINTN index) const { return handles_[index]; }

  // Fills the buffer with the handles that carry the protocol, in the database's order; empty on failure.
  [[nodiscard]] EFI_STATUS Locate(const EFI_GUID& guid);
  // All handles of the system.
  [[nodiscard]] EFI_STATUS LocateAll();

 private:
  EFI_STATUS Fill(UINT32 searchType, const EFI_GUID* guid);

  PoolPtr<EFI_HANDLE> handles_;
  UINTN count_ = 0;
};

// All handles that carry T; empty when there are none.
template <typename T>
[[nodiscard]] HandleBuffer HandlesWith() {
  HandleBuffer handles;
  static_cast<void>(handles.Locate(ProtocolGuid<T>));
  return handles;
}

// The device path on the handle; null when it has none. Not owned by the caller.
[[nodiscard]] const EFI_DEVICE_PATH_PROTOCOL* DevicePathOf(EFI_HANDLE handle);

}  // namespace bds
