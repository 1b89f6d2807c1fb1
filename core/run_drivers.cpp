// Drivers that NVRAM asks for: Driver#### options in the order of DriverOrder.
#include "bootopt/load_option.h"
#include "core/load_image.h"
#include "core/state.h"
#include "core/steps.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "support/variables.h"

namespace bds {
namespace {

// A copy of the option's data behind the link that keeps it for the rest of the boot.
PoolPtr<RESIDENT_LOAD_OPTIONS> CopyForResident(Bytes data) {
  if (data.empty()) {
    return nullptr;
  }
  PoolPtr<RESIDENT_LOAD_OPTIONS> copy(
      static_cast<RESIDENT_LOAD_OPTIONS*>(AllocatePool(sizeof(RESIDENT_LOAD_OPTIONS) + data.size())));
  if (copy) {
    copy->Next = nullptr;
    CopyMemory(copy.get() + 1, data.data(), data.size());
  }
  return copy;
}

bool StartDriver(const LoadOptionView& option) {
  LoadedImage image;
  const auto path = CopyDevicePath(reinterpret_cast<const DevicePath*>(option.FilePathList.data()));
  if (!path || EFI_ERROR(image.Load(path.get()))) {
    return false;
  }
  auto data = CopyForResident(option.OptionalData);
  if (data) {
    image.SetLoadOptions(data.get() + 1, option.OptionalData.size());
  }
  if (EFI_ERROR(image.Start())) {
    return false;
  }
  if (data) {
    data->Next = gCore.DriverOptions;
    gCore.DriverOptions = data.release();
  }
  return true;
}

// True when the driver was started and asks for all controllers to be connected anew.
bool RunDriver(UINT16 number) {
  PoolBuffer variable;
  LoadOptionView option;
  if (EFI_ERROR(ReadVariable(DriverVariableName(number), gEfiGlobalVariableGuid, variable)) ||
      !ViewLoadOption(variable.Bytes(), option) || (option.Attributes & LOAD_OPTION_ACTIVE) == 0) {
    return false;
  }
  return StartDriver(option) && (option.Attributes & LOAD_OPTION_FORCE_RECONNECT) != 0;
}

void ReconnectAll() {
  for (EFI_HANDLE handle : gCore.AllHandles) {
    static_cast<void>(BootServices()->DisconnectController(handle, nullptr, nullptr));
  }
  static_cast<void>(ConnectEverything());
}

}  // namespace

void RunDrivers() {
  PoolBuffer order;
  const EFI_STATUS status = ReadVariable(u"DriverOrder", gEfiGlobalVariableGuid, order);
  if (status == EFI_NOT_FOUND) {
    DebugPrint("RunDrivers:No DriverOrder present\n");
    return;
  }
  if (EFI_ERROR(status)) {
    DebugPrint("RunDrivers:Failed reading DriverOrder:%r\n", status);
    return;
  }
  bool reconnect = false;
  ByteReader reader(order.Bytes());
  for (UINT16 number = 0; reader.Read(number);) {
    reconnect = RunDriver(number) || reconnect;
  }
  if (reconnect) {
    ReconnectAll();
  }
}

}  // namespace bds
