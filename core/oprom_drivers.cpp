// Drivers come one by one through driver binding handles; what the firmware connects is the image behind a binding.
#include "core/oprom_drivers.h"

#include "core/state.h"
#include "platform/driver_binding.h"
#include "support/event.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINTN kListGrowth = 64;

bool Contains(const DRIVER_LIST& list, EFI_HANDLE driver) {
  for (UINTN i = 0; i < list.Count; ++i) {
    if (list.Handles[i] == driver) {
      return true;
    }
  }
  return false;
}

bool Grow(DRIVER_LIST& list) {
  auto larger = AllocateArray<EFI_HANDLE>(list.Capacity + kListGrowth);
  if (!larger) {
    return false;
  }
  CopyMemory(larger.get(), list.Handles, list.Count * sizeof(EFI_HANDLE));
  FreePool(list.Handles);
  list.Handles = larger.release();
  list.Capacity += kListGrowth;
  return true;
}

void Append(DRIVER_LIST& list, EFI_HANDLE driver) {
  if (Contains(list, driver) || (list.Count == list.Capacity && !Grow(list))) {
    return;
  }
  list.Handles[list.Count++] = driver;
}

void AddDriver(EFI_HANDLE bindingHandle) {
  const auto* binding = HandleProtocol<EFI_DRIVER_BINDING_PROTOCOL>(bindingHandle);
  EFI_HANDLE image = binding != nullptr && binding->ImageHandle != nullptr ? binding->ImageHandle : bindingHandle;
  const bool thunk = IsThunkDriver(image) || IsThunkDriver(bindingHandle);
  Append(thunk ? gCore.OptionRom.ThunkDrivers : gCore.OptionRom.UefiDrivers, image);
}

// The registration hands out each new handle once.
VOID EFIAPI OnNewBinding(EFI_EVENT, VOID*) {
  EFI_HANDLE handle = nullptr;
  UINTN size = sizeof(handle);
  while (!EFI_ERROR(
      BootServices()->LocateHandle(ByRegisterNotify, nullptr, gCore.OptionRom.BindingRegistration, &size, &handle))) {
    AddDriver(handle);
    size = sizeof(handle);
  }
}

}  // namespace

bool IsThunkDriver(EFI_HANDLE handle) { return HasProtocol(handle, kThunkDriverMarkGuid); }

void CollectDrivers() {
  OPTION_ROM_STATE& state = gCore.OptionRom;
  static_cast<void>(Grow(state.ThunkDrivers));
  static_cast<void>(Grow(state.UefiDrivers));
  const EFI_STATUS status =
      NotifyOnProtocol(ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>, OnNewBinding, nullptr, &state.BindingRegistration);
  for (EFI_HANDLE handle : HandlesWith<EFI_DRIVER_BINDING_PROTOCOL>()) {
    AddDriver(handle);
  }
  if (!EFI_ERROR(status)) {
    OnNewBinding(nullptr, nullptr);
  }
}

}  // namespace bds
