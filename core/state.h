// Everything of the driver's core that outlives a routine: the record of the Setup variable, the handles kept for the
// whole run, and the interfaces installed for others. The option ROM policy keeps its own (oprom_state.h).
#pragma once

#include "platform/bds_arch.h"
#include "platform/firmware_performance.h"
#include "platform/load_file.h"
#include "support/device_path.h"
#include "support/pool.h"
#include "support/setup.h"

namespace bds {

// Handles kept for the rest of the boot; the array is pool memory that this record holds.
struct HANDLE_ARRAY {
  EFI_HANDLE* Handles = nullptr;
  UINTN Count = 0;

  EFI_HANDLE* begin() const { return Handles; }
  EFI_HANDLE* end() const { return Handles + Count; }
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
  SetupVariable Setup;        // as it was at load; zeros when it could not be read
  BOOLEAN SetupRead = FALSE;  // it could be read
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
};
extern constinit CORE_STATE gCore;

}  // namespace bds
