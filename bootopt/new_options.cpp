// Makes a firmware option for each device that no option claimed.
#include "bootopt/dumps/dumps.h"
#include "bootopt/file_path_builders.h"
#include "bootopt/names/naming.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr char kCreate[] = "CreateBootOptionsForNewBootDevices";

void PrintDevicePath(EFI_HANDLE handle) {
  PoolPtr<char> text;
  const EFI_DEVICE_PATH_PROTOCOL* path = DevicePathOf(handle);
  if (path != nullptr && !EFI_ERROR(DevicePathToText(path, text))) {
    DebugPrintText(text.get());
    DebugPrint("\n");
  }
}

void BuildFirmwareOption(BOOT_OPTION& option) {
  option.FwBootOption = TRUE;
  BuildBootOptionName(option);
  if (!BuildFilePathList(option)) {
    option.FilePathList.reset();
    option.FilePathListLength = 0;
  }
}

}  // namespace

void CreateBootOptionsForNewBootDevices() {
  while (BootDeviceList.First != nullptr) {
    BOOT_DEVICE* device = BootDeviceList.First;
    BOOT_OPTION* option = CreateBootOption(BootOptionList);
    if (option == nullptr) {
      break;
    }
    if (device->DeviceHandle != nullptr) {
      PrintDevicePath(device->DeviceHandle);
    }
    UpdateBootOptionWithBootDeviceInfo(*option, *device);
    DebugPrint("%a:Deleting (0x%x)Device BBSIndex:%d from BootDeviceList (because we are done with it)\n", kCreate,
               device->DeviceHandle, device->BbsIndex);
    DeleteBootDevice(BootDeviceList, device);
    BuildFirmwareOption(*option);
  }
  DumpBootOptionList(BootOptionList, "Before Processing");
}

}  // namespace bds
