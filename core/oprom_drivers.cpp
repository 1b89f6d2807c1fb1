// Drivers come one by one through driver binding handles; what the firmware connects is the image behind a binding.
#include "core/oprom_drivers.h"

#include "core/oprom_state.h"
#include "platform/driver_binding.h"
#include "support/event.h"
#include "support/protocols.h"

namespace bds {
namespace {

void AddDriver(EFI_HANDLE bindingHandle) {
  const auto* binding = HandleProtocol<EFI_DRIVER_BINDING_PROTOCOL>(bindingHandle);
  EFI_HANDLE image = binding != nullptr && binding->ImageHandle != nullptr ? binding->ImageHandle : bindingHandle;
  const bool thunk = IsThunkDriver(image) || IsThunkDriver(bindingHandle);
  AppendHandle(thunk ? gOptionRom.ThunkDrivers : gOptionRom.UefiDrivers, image);
}

// The registration hands out each new handle once.
VOID EFIAPI OnNewBinding(EFI_EVENT, VOID*) {
  EFI_HANDLE handle = nullptr;
  UINTN size = sizeof(handle);
  while (!EFI_ERROR(
      BootServices()->LocateHandle(ByRegisterNotify, nullptr, gOptionRom.BindingRegistration, &size, &handle))) {
    AddDriver(handle);
    size = sizeof(handle);
  }
}

}  // namespace

bool IsThunkDriver(EFI_HANDLE handle) { return HasProtocol(handle, kThunkDriverMarkGuid); }

void CollectDrivers() {
  OPTION_ROM_STATE& state = gOptionRom;
  static_cast<void>(ReserveHandle(state.ThunkDrivers));
  static_cast<void>(ReserveHandle(state.UefiDrivers));
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
