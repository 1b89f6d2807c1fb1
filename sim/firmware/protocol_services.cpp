// Protocols installed and taken away again (UEFI 2.10, 7.3), one at a time or several at once.
#include <algorithm>
#include <cstdarg>

#include "sim/firmware/service_call.h"

namespace sim {
namespace {

EFI_STATUS EFIAPI InstallProtocolInterface(EFI_HANDLE* handle, const EFI_GUID* guid, EFI_INTERFACE_TYPE type,
                                           VOID* interface) {
  Trace("install {} on {}{}", Named(guid), fmt::ptr(handle == nullptr ? nullptr : *handle),
        interface == nullptr ? ", nothing behind it" : "");
  return Call("InstallProtocolInterface", [&] {
    return type == EFI_NATIVE_INTERFACE ? M().Handles().Install(handle, guid, interface) : EFI_INVALID_PARAMETER;
  });
}
EFI_STATUS EFIAPI ReinstallProtocolInterface(EFI_HANDLE handle, const EFI_GUID* guid, VOID* oldOne, VOID* newOne) {
  return Call("ReinstallProtocolInterface", [&] { return M().Handles().Reinstall(handle, guid, oldOne, newOne); });
}
EFI_STATUS EFIAPI UninstallProtocolInterface(EFI_HANDLE handle, const EFI_GUID* guid, VOID* interface) {
  Trace("uninstall {} from {}", Named(guid), fmt::ptr(handle));
  return Call("UninstallProtocolInterface", [&] { return M().Handles().Uninstall(handle, guid, interface); });
}

struct GuidAndInterface {
  EFI_GUID* guid;
  void* interface;
};

std::vector<GuidAndInterface> ReadPairs(__builtin_ms_va_list& arguments) {
  std::vector<GuidAndInterface> pairs;
  for (;;) {
    auto* guid = __builtin_va_arg(arguments, EFI_GUID*);
    if (guid == nullptr) {
      return pairs;
    }
    pairs.push_back({guid, __builtin_va_arg(arguments, void*)});
  }
}

EFI_STATUS InstallAll(EFI_HANDLE* handle, const std::vector<GuidAndInterface>& pairs) {
  if (handle == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_HANDLE before = *handle;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    const bool twice = *pairs[i].guid == ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL> &&
                       M().Handles().HasDevicePath(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(pairs[i].interface));
    const EFI_STATUS status =
        twice ? EFI_ALREADY_STARTED : M().Handles().Install(handle, pairs[i].guid, pairs[i].interface);
    if (!EFI_ERROR(status)) {
      continue;
    }
    for (std::size_t undone = i; undone-- > 0;) {
      static_cast<void>(M().Handles().Uninstall(*handle, pairs[undone].guid, pairs[undone].interface));
    }
    *handle = before;
    return status;
  }
  return EFI_SUCCESS;
}

// All pairs are there, each once: with that checked first, the handle never vanishes before a failure is known.
bool AllInstalled(EFI_HANDLE handle, const std::vector<GuidAndInterface>& pairs) {
  for (auto pair = pairs.begin(); pair != pairs.end(); ++pair) {
    const auto* interface = M().Handles().Find(handle, *pair->guid);
    const bool twice =
        std::any_of(pairs.begin(), pair, [pair](const auto& earlier) { return *earlier.guid == *pair->guid; });
    if (interface == nullptr || interface->pointer != pair->interface || twice) {
      return false;
    }
  }
  return true;
}

EFI_STATUS UninstallAll(EFI_HANDLE handle, const std::vector<GuidAndInterface>& pairs) {
  if (!AllInstalled(handle, pairs)) {
    return EFI_INVALID_PARAMETER;
  }
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    const EFI_STATUS status = M().Handles().Uninstall(handle, pairs[i].guid, pairs[i].interface);
    if (!EFI_ERROR(status)) {
      continue;
    }
    for (std::size_t undone = i; undone-- > 0;) {
      static_cast<void>(M().Handles().Install(&handle, pairs[undone].guid, pairs[undone].interface));
    }
    return EFI_INVALID_PARAMETER;
  }
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI InstallMultipleProtocolInterfaces(EFI_HANDLE* handle, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, handle);
  const AcrossCalls pairs(M().Held(), ReadPairs(arguments));
  __builtin_ms_va_end(arguments);
  return Call("InstallMultipleProtocolInterfaces", [&] { return InstallAll(handle, *pairs); });
}
EFI_STATUS EFIAPI UninstallMultipleProtocolInterfaces(EFI_HANDLE handle, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, handle);
  const AcrossCalls pairs(M().Held(), ReadPairs(arguments));
  __builtin_ms_va_end(arguments);
  return Call("UninstallMultipleProtocolInterfaces", [&] { return UninstallAll(handle, *pairs); });
}

}  // namespace

void FillProtocolServices(EFI_BOOT_SERVICES& table) {
  table.InstallProtocolInterface = InstallProtocolInterface;
  table.ReinstallProtocolInterface = ReinstallProtocolInterface;
  table.UninstallProtocolInterface = UninstallProtocolInterface;
  table.InstallMultipleProtocolInterfaces = InstallMultipleProtocolInterfaces;
  table.UninstallMultipleProtocolInterfaces = UninstallMultipleProtocolInterfaces;
}

}  // namespace sim
