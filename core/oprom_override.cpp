// GetDriver: the firmware asks again and again for one controller, each time with the last answer, until it is told
// that there are no more drivers.
#include "core/oprom_override.h"

#include "core/oprom_state.h"
#include "core/pci_handles.h"
#include "platform/bus_specific_driver_override.h"

namespace bds {
namespace {

constexpr UINT8 kPolicyNoOverride = 0;
constexpr UINT8 kPolicyLegacy = 2;
constexpr UINT8 kPolicyLegacyToo = 3;

// Only these classes are ever overridden; for all others the firmware's own choice stands.
struct ClassPolicy {
  UINT8 BaseClass;
  UINTN Index;
};
constexpr ClassPolicy kOverriddenClasses[] = {
    {kPciClassMassStorage, kPolicyMassStorage},
    {kPciClassNetwork, kPolicyNetwork},
    {kPciClassDisplay, kPolicyDisplay},
};

UINT8 PolicyOfClass(UINT8 baseClass) {
  for (const ClassPolicy& row : kOverriddenClasses) {
    if (row.BaseClass == baseClass) {
      return gOptionRom.Policy[row.Index];
    }
  }
  return kPolicyNoOverride;
}

void StartAnswers(EFI_HANDLE controller, bool legacyPath) {
  OPTION_ROM_STATE& state = gOptionRom;
  state.Controller = controller;
  state.LegacyPath = legacyPath;
  state.Position = 0;
  state.Override = BusOverride::NotAsked;
}

EFI_STATUS BeginController(EFI_HANDLE controller) {
  UINT8 baseClass = 0;
  if (EFI_ERROR(ReadPciClass(controller, baseClass))) {
    return EFI_NOT_FOUND;
  }
  const UINT8 policy = PolicyOfClass(baseClass);
  if (policy == kPolicyNoOverride) {
    return EFI_NOT_FOUND;
  }
  StartAnswers(controller, policy == kPolicyLegacy || policy == kPolicyLegacyToo);
  return EFI_SUCCESS;
}

EFI_STATUS NextOfList(const HANDLE_LIST& list, EFI_HANDLE& driver) {
  if (gOptionRom.Position >= list.Count) {
    StartAnswers(nullptr, false);
    return EFI_NOT_FOUND;
  }
  driver = list.Handles[gOptionRom.Position++];
  return EFI_SUCCESS;
}

EFI_STATUS NextOfBusOverride(EFI_HANDLE controller, EFI_HANDLE& driver) {
  OPTION_ROM_STATE& state = gOptionRom;
  auto* bus = state.Override == BusOverride::Absent
                  ? nullptr
                  : HandleProtocol<EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL>(controller);
  if (bus != nullptr) {
    EFI_HANDLE next = driver;
    if (!EFI_ERROR(bus->GetDriver(bus, &next)) && next != nullptr) {
      state.Override = BusOverride::Found;
      driver = next;
      return EFI_SUCCESS;
    }
  }
  state.Override = BusOverride::Absent;
  return EFI_NOT_FOUND;
}

EFI_STATUS EFIAPI GetDriver(EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL*, EFI_HANDLE controller, EFI_HANDLE* driver) {
  if (controller == nullptr || driver == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  OPTION_ROM_STATE& state = gOptionRom;
  if (*driver == nullptr) {
    if (const EFI_STATUS status = BeginController(controller); EFI_ERROR(status)) {
      return status;
    }
  }
  if (controller != state.Controller) {
    return EFI_INVALID_PARAMETER;
  }
  if (state.LegacyPath) {
    return NextOfList(state.ThunkDrivers, *driver);
  }
  if (!EFI_ERROR(NextOfBusOverride(controller, *driver))) {
    return EFI_SUCCESS;
  }
  return NextOfList(state.UefiDrivers, *driver);
}

EFI_STATUS EFIAPI GetDriverPath(EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL*, EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL**) {
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI DriverLoaded(EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL*, EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL*,
                               EFI_HANDLE) {
  return EFI_UNSUPPORTED;
}

}  // namespace

EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL MakeDriverOverride() { return {GetDriver, GetDriverPath, DriverLoaded}; }

}  // namespace bds
