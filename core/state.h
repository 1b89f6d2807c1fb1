// Everything of the driver's core that outlives a routine: the record of the Setup variable, the handles kept for the
// whole run, the interfaces installed for others, and the option ROM policy.
#pragma once

#include "platform/bds_arch.h"
#include "platform/csm_policy.h"
#include "platform/firmware_performance.h"
#include "platform/load_file.h"
#include "platform/platform_driver_override.h"
#include "platform/setup_variable.h"
#include "support/device_path.h"
#include "support/pool.h"

namespace bds {

// Handles kept for the rest of the boot; the array is pool memory that this record holds.
struct HANDLE_ARRAY {
  EFI_HANDLE* Handles = nullptr;
  UINTN Count = 0;

  EFI_HANDLE* begin() const { return Handles; }
  EFI_HANDLE* end() const { return Handles + Count; }
};

// Driver image handles in the order in which the drivers appeared; pool memory that grows by 64 entries.
struct DRIVER_LIST {
  EFI_HANDLE* Handles = nullptr;
  UINTN Count = 0;
  UINTN Capacity = 0;
};

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
  BOOLEAN DisplayTakenOver = FALSE;     // a UEFI graphics driver was detached for the legacy video ROM
  BOOLEAN AllDriversConnected = FALSE;  // set by the signal of that name
  EFI_HANDLE Display = nullptr;         // the display controller concerned; set by the takeover
  void* BindingRegistration = nullptr;  // search key of the notification on new driver bindings
  DRIVER_LIST ThunkDrivers;             // drivers that run legacy option ROMs
  DRIVER_LIST UefiDrivers;              // all other drivers

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

#pragma pack(push, 1)
// The device path of the firmware load-file handle.
struct BUILT_IN_APPLICATION_PATH {
  VENDOR_DEVICE_PATH Node;
  EFI_DEVICE_PATH_PROTOCOL End;
};
#pragma pack(pop)

// Load options of a driver that stays resident; its data follows the record. The driver may read it at any time.
struct RESIDENT_LOAD_OPTIONS {
  RESIDENT_LOAD_OPTIONS* Next;
};

struct CORE_STATE {
  UINT8 Setup[kSetupSize] = {};  // the Setup variable as it was at load; zeros when it could not be read
  BOOLEAN SetupRead = FALSE;     // it could be read
  EFI_BDS_ARCH_PROTOCOL BdsArch = {};
  HANDLE_ARRAY AllHandles;     // all handles of the system, taken before the first step
  UINT64 PerformanceData = 0;  // address of the performance data block; kept by the boot-start time stamp

  // Of the last PCI-to-ISA bridge found by ConnectPs2ConIn. A reconnect of everything makes the bridge's handle and the
  // path on it anew, so a copy is what outlives it.
  KeptPtr<DevicePath> IsaBridgePath;
  HANDLE_ARRAY FirmwareVolumes;                    // recorded by SignalEndOfDxe, read by the firmware load-file service
  BOOLEAN MemoryTypesUpdated = FALSE;              // the memory type information was updated this boot
  RESIDENT_LOAD_OPTIONS* DriverOptions = nullptr;  // of the drivers that RunDrivers started
  EFI_LOAD_FILE_PROTOCOL FwLoadFile = {};
  BUILT_IN_APPLICATION_PATH FwLoadFilePath = {};

  OPTION_ROM_STATE OptionRom;
};
extern constinit CORE_STATE gCore;

}  // namespace bds
