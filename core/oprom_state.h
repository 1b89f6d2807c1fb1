// What the option ROM policy keeps: its bytes, the drivers it hands out, the answers that it gives one by one, the
// displays that it took over, and the interfaces it offers to the firmware and the CSM.
#pragma once

#include "core/handle_list.h"
#include "platform/csm_policy.h"
#include "platform/platform_driver_override.h"
#include "platform/setup_variable.h"

namespace bds {

// Indices into the option ROM policy.
inline constexpr UINTN kPolicySwitch = 0;
inline constexpr UINTN kPolicyNetwork = 1;
inline constexpr UINTN kPolicySerialBus = 2;
inline constexpr UINTN kPolicyMassStorage = 3;
inline constexpr UINTN kPolicyDisplay = 4;
inline constexpr UINTN kPolicyOther = 5;

// What the controller at hand brings along in its bus-specific override.
enum class BusOverride : UINT8 { NotAsked, Found, Absent };

struct OPTION_ROM_STATE {
  UINT8 Policy[kSetupOptionRomPolicySize] = {0, 2, 1, 2, 2, 1};  // Setup's bytes; written at load and at start-up
  BOOLEAN Started = FALSE;                                       // the legacy start-up ran
  BOOLEAN AllDriversConnected = FALSE;                           // set by the signal of that name
  HANDLE_LIST Displays;                 // controllers that were taken over for their legacy video ROM
  void* BindingRegistration = nullptr;  // search key of the notification on new driver bindings
  HANDLE_LIST ThunkDrivers;             // images of the drivers that run legacy option ROMs, as they appeared
  HANDLE_LIST UefiDrivers;              // of all other drivers

  // The answers given so far for one controller; reset by each first call.
  EFI_HANDLE Controller = nullptr;
  UINTN Position = 0;
  BOOLEAN LegacyPath = FALSE;
  BusOverride Override = BusOverride::NotAsked;

  // Installed once by the start-up.
  CSM_POLICY_HOOK_A HookA = {};
  CSM_POLICY_HOOK_B HookB = {};
  EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL DriverOverride = {};
};
extern constinit OPTION_ROM_STATE gOptionRom;

}  // namespace bds
