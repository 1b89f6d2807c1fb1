#include "bootopt/boot_lists.h"

#include "bootopt/names/inquiry_name.h"
#include "support/debug_print.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {

constinit BOOT_OPTION_STATE gBootOptions;

namespace {

// BBS indexes below this one are filled by the CSM itself, also for devices that no driver knows.
constexpr UINT16 kFirstDriverBbsIndex = 25;

PoolPtr<char> FindDeviceName(EFI_HANDLE handle) {
  PoolPtr<char> name = UsbDeviceName(handle);
  if (!name) {
    name = ScsiDeviceName(handle);
  }
  if (name) {
    DebugPrint("Device name is %a\n", name.get());
    return name;
  }
  static_cast<void>(GetControllerDeviceName(handle, name));
  return name;
}

// A number that was given anew may be that of a variable which another option is still to be moved from.
bool WasAnotherLoadedFrom(UINT16 number, const BOOT_OPTION& option) {
  const BOOT_OPTION* other = BootOptionList.First;
  while (other != nullptr && (other == &option || other->StoredNumber != number)) {
    other = other->Next;
  }
  return other != nullptr;
}

}  // namespace

BOOT_OPTION* CreateBootOption(BOOT_OPTION_LIST& list) { return AppendNew(list); }

void DeleteBootOption(BOOT_OPTION_LIST& list, BOOT_OPTION* option) {
  DebugPrint("%a:Deleting BootOption(%d) Description=%a mapped to BBSIndex=%d\n", "DeleteBootOption",
             option->BootOptionNumber, option->Description.get(), option->BbsIndex);
  if (option->OptionalDataSize == 0) {
    static_cast<void>(option->OptionalData.release());
  }
  Remove(list, option);
}

void DeleteBootOptionAndVariable(BOOT_OPTION_LIST& list, BOOT_OPTION* option, UINTN mode) {
  constexpr UINTN kDelete = 1;
  if (mode != kDelete) {
    return;
  }
  if (option->BootOptionNumber < kNoBootOptionNumber && !WasAnotherLoadedFrom(option->BootOptionNumber, *option)) {
    static_cast<void>(DeleteVariable(BootVariableName(option->BootOptionNumber), gEfiGlobalVariableGuid));
  }
  DebugPrint("Deleting Boot Option Tag:%x Prio:%x BootOption#:%x\n", option->Tag, option->Priority,
             option->BootOptionNumber);
  DeleteBootOption(list, option);
}

BOOT_DEVICE* CreateBootDevice(BOOT_DEVICE_LIST& list, EFI_HANDLE deviceHandle, UINT16 bbsIndex, BBS_TABLE* bbsEntry) {
  if (bbsIndex < kFirstDriverBbsIndex && bbsEntry != nullptr && bbsEntry->IBV1 == 0) {
    DebugPrint("Ignoring the device entry \n");
    return nullptr;
  }
  DebugPrint("%a:Creating bootdevice with BBSIndex(%d)\n", "CreateBootDevice", bbsIndex);
  BOOT_DEVICE* device = AppendNew(list);
  if (device == nullptr) {
    return nullptr;
  }
  device->DeviceHandle = deviceHandle;
  device->BbsIndex = bbsIndex;
  device->BbsEntry = bbsEntry;
  if (deviceHandle != nullptr) {
    device->DeviceName = FindDeviceName(deviceHandle);
  }
  return device;
}

void DeleteBootDevice(BOOT_DEVICE_LIST& list, BOOT_DEVICE* device) {
  if (device->DeviceName) {
    DebugPrint("%a:Deleting  %a Device @ Index:%d\n", "DeleteBootDevice", device->DeviceName.get(), device->BbsIndex);
  } else {
    DebugPrint("%a:Deleting (%0x)Device @ Index:%d\n", "DeleteBootDevice", device->DeviceHandle, device->BbsIndex);
  }
  Remove(list, device);
}

void UpdateBootOptionWithBootDeviceInfo(BOOT_OPTION& option, const BOOT_DEVICE& device) {
  DebugPrint("%a:Option BbsIndex=%d Description=%a to Device BbsIndex=%d", "UpdateBootOptionWithBootDeviceInfo",
             option.BbsIndex, option.Description ? option.Description.get() : u"<empty>", device.BbsIndex);
  option.BbsEntry = device.BbsEntry;
  option.BbsIndex = device.BbsIndex;
  option.DeviceHandle = device.DeviceHandle;
}

}  // namespace bds
