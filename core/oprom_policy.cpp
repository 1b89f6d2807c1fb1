// The start-up of the option ROM policy. It can run in the notification that a CSM has appeared.
#include "core/oprom_policy.h"

#include "core/oprom_drivers.h"
#include "core/oprom_hooks.h"
#include "core/oprom_override.h"
#include "core/oprom_state.h"
#include "core/state.h"
#include "platform/legacy_bios.h"
#include "platform/signals.h"
#include "support/event.h"
#include "support/protocols.h"

namespace bds {
namespace {

// Without a CSM only UEFI drivers can show a picture.
constexpr UINT8 kDisplayWithoutCsm = 1;

VOID EFIAPI OnLegacyBios(EFI_EVENT, VOID*) { StartOptionRomPolicy(); }

VOID EFIAPI OnAllDriversConnected(EFI_EVENT, VOID*) { gOptionRom.AllDriversConnected = TRUE; }

bool HasLegacyBios() { return !HandlesWith<EFI_LEGACY_BIOS_PROTOCOL>().empty(); }

template <typename Interface>
void Install(EFI_HANDLE& handle, Interface& interface) {
  static_cast<void>(
      BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<Interface>, EFI_NATIVE_INTERFACE, &interface));
}

void InstallPolicyProtocols() {
  OPTION_ROM_STATE& state = gOptionRom;
  state.HookA = MakePolicyHookA();
  state.HookB = MakePolicyHookB();
  state.DriverOverride = MakeDriverOverride();
  EFI_HANDLE handle = nullptr;
  Install(handle, state.HookA);
  Install(handle, state.HookB);
  Install(handle, state.DriverOverride);
}

}  // namespace

void ArrangeOptionRomPolicy() {
  UINT8* policy = gOptionRom.Policy;
  CopyMemory(policy, gCore.Setup.Bytes + kSetupOptionRomPolicy, kSetupOptionRomPolicySize);
  if (HasLegacyBios()) {
    StartOptionRomPolicy();
    return;
  }
  static_cast<void>(NotifyOnProtocol(ProtocolGuid<EFI_LEGACY_BIOS_PROTOCOL>, OnLegacyBios));
  policy[kPolicySwitch] = 0;
  policy[kPolicyDisplay] = kDisplayWithoutCsm;
}

void StartOptionRomPolicy() {
  OPTION_ROM_STATE& state = gOptionRom;
  if (state.Started || !HasLegacyBios()) {
    return;
  }
  state.Started = TRUE;
  state.Policy[kPolicySwitch] = gCore.Setup.At(kSetupOptionRomPolicy + kPolicySwitch);
  state.Policy[kPolicyDisplay] = gCore.Setup.At(kSetupOptionRomPolicy + kPolicyDisplay);
  static_cast<void>(NotifyOnProtocol(kAllDriversConnectedSignalGuid, OnAllDriversConnected));
  CollectDrivers();
  InstallPolicyProtocols();
}

}  // namespace bds
