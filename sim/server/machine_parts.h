// What one boot of a described server is made of, attached to its machine in the order in which firmware would come up.
#pragma once

#include <memory>

#include "platform/usb_support.h"
#include "platform/zephan_mode.h"
#include "sim/bmc/bmc.h"
#include "sim/bus/device_set.h"
#include "sim/csm/csm.h"
#include "sim/firmware/image/image_service.h"
#include "sim/firmware/machine.h"
#include "sim/firmware/services/console.h"
#include "sim/firmware/services/firmware_volume.h"
#include "sim/firmware/services/hii_database.h"
#include "sim/firmware/services/hob_list.h"
#include "sim/firmware/services/memory_space.h"
#include "sim/firmware/services/platform_records.h"
#include "sim/firmware/services/text_services.h"
#include "sim/firmware/variables/runtime_services.h"
#include "sim/server/description.h"
#include "sim/server/front_end.h"
#include "sim/server/scripted_health.h"

namespace sim {

class MachineParts {
 public:
  MachineParts(Machine& machine, const ServerDescription& server, VariableStore& store, Bmc& bmc);
  MachineParts(const MachineParts&) = delete;
  MachineParts& operator=(const MachineParts&) = delete;

  RuntimeServices& Runtime() { return runtime_; }
  ImageService& Images() { return images_; }
  ConsoleModel& Console() { return console_; }
  // The CSM and the front end are attached to the machine itself: machine.Get<Csm>(), machine.Get<FrontEnd>().

 private:
  void InstallConsole();
  void InstallMemory(const FirmwareDescription& firmware);
  void AddPlatformBlocks(const ServerDescription& server);
  void InstallFirmwareVolume(const FirmwareDescription& firmware);
  void InstallSystemTables(const ServerDescription& server);
  void InstallHealth(const ServerDescription& server);
  void InstallPlatform(const ServerDescription& server, Bmc& bmc);

  Machine& machine_;
  RuntimeServices runtime_;
  ImageService images_;
  ConsoleModel console_;
  HiiDatabase hii_;
  std::unique_ptr<FormBrowser> formBrowser_;
  std::vector<std::unique_ptr<ScriptedHealth>> healthDrivers_;
  TextServices text_;
  HobList hobs_;
  DxeServicesModel dxe_;
  StatusCodeRecorder statusCodes_;
  AcpiS3SaveModel s3_;
  FirmwarePerformanceModel performance_;
  FirmwareVolume volume_;
  DevicePath volumePath_;
  std::vector<EFI_MEMORY_TYPE_INFORMATION> usedPages_;
  ZEPHAN_MODE_INFO mode_{};
  USB_SUPPORT_PROTOCOL usb_{};
};

}  // namespace sim
