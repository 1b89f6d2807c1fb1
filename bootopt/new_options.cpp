// Makes a firmware option for each device that no option claimed.
#include "bootopt/dumps/dumps.h"
#include "bootopt/file_path_builders.h"
#include "bootopt/names/device_path_text.h"
#include "bootopt/names/option_name.h"
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

// False when memory ran out on the way. A name may be missing then, or a path: known by fewer paths, the option would
// match its device ever after, and no whole one be made.
bool BuildFirmwareOption(BOOT_OPTION& option) {
  const PoolWatch watch;
  option.FwBootOption = TRUE;
  BuildBootOptionName(option);
  if (!BuildFilePathList(option)) {
    option.FilePathList.reset();
    option.FilePathListLength = 0;
  }
  return !watch.Exhausted();
}

void MakeOptionFor(BOOT_DEVICE* device) {
  BOOT_OPTION* option = CreateBootOption(BootOptionList);
  if (option == nullptr) {
    DeleteBootDevice(BootDeviceList, device);
    return;
  }
  if (device->DeviceHandle != nullptr) {
    PrintDevicePath(device->DeviceHandle);
  }
  UpdateBootOptionWithBootDeviceInfo(*option, *device);
  DebugPrint("%a:Deleting (0x%x)Device BBSIndex:%d from BootDeviceList (because we are done with it)\n", kCreate,
             device->DeviceHandle, device->BbsIndex);
  DeleteBootDevice(BootDeviceList, device);
  if (!BuildFirmwareOption(*option)) {
    DebugPrint("%a:No memory for the whole option, the next boot makes it\n", kCreate);
    DeleteBootOption(BootOptionList, option);
  }
}

}  // namespace

void CreateBootOptionsForNewBootDevices() {
  if (!EveryOptionWasLoaded()) {
    // The option of a device that none claimed may be the one that was not loaded, and would be there twice.
    DebugPrint("%a:Not every option was loaded, no new one is made\n", kCreate);
  } else {
    while (BootDeviceList.First != nullptr) {
      MakeOptionFor(BootDeviceList.First);
    }
  }
  DumpBootOptionList(BootOptionList, "Before Processing");
}

}  // namespace bds
