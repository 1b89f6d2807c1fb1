// The options that a policy may tag, with what their paths say of their disks.
#include "bmc/steps.h"
#include "bootopt/bbs_table.h"
#include "bootopt/dumps/dumps.h"
#include "bootopt/names/device_path_text.h"
#include "support/debug_print.h"
#include "vboot/bbs_kind.h"
#include "vboot/option_path.h"
#include "vboot/option_wrapper.h"

namespace bds {
namespace {

// A header without a device and without members of its own in its data stands for nothing.
bool IsIdleGroupHeader(const BOOT_OPTION& option) {
  return option.GroupHeader != FALSE && option.BbsIndex == kNoBbsIndex && option.DeviceHandle == nullptr &&
         option.OptionalDataSize == 0;
}

void RemoveIdleGroupHeaders() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    if (IsIdleGroupHeader(*option)) {
      DebugPrint("Removing group header %a\n", option->Description.get());
      DeleteBootOption(BootOptionList, option);
    }
    option = next;
  }
}

bool IsLegacyUsb(const BOOT_OPTION& option) {
  return option.BbsIndex < kNoBbsIndex && option.BbsEntry != nullptr && IsUsbEntry(*option.BbsEntry);
}

INTN CompareByLegacyUsb(const BOOT_OPTION& a, const BOOT_OPTION& b) {
  return static_cast<INTN>(IsLegacyUsb(a)) - static_cast<INTN>(IsLegacyUsb(b));
}

const DevicePath* PathOf(EFI_HANDLE handle) { return handle != nullptr ? DevicePathOf(handle) : nullptr; }

// An option for a partition that is there belongs to an operating system, whoever made it.
void FindDisk(VBOOT_OPTION_WRAPPER& wrapper, const Partitions& partitions) {
  BOOT_OPTION& option = *wrapper.Option;
  const DevicePath* first = OptionPathInstances(option).Node();
  if (!IsHardDriveNode(first)) {
    return;
  }
  wrapper.DiskDevicePath = partitions.FindDiskOf(first);
  if (wrapper.DiskDevicePath) {
    static_cast<void>(DevicePathToText(wrapper.DiskDevicePath.get(), wrapper.DiskPathText));
  }
  if (wrapper.DiskPathText) {
    DebugPrint("EFI option: %S \n\tFull path: ", option.Description.get());
    DebugPrintText(wrapper.DiskPathText.get());
    option.FwBootOption = FALSE;
  }
}

}  // namespace

void CreateOptionWrappers(OPTION_WRAPPER_LIST& wrappers) {
  DebugPrint("Flexboot: creating option wrappers.\n");
  RemoveIdleGroupHeaders();
  DeleteIdenticalBootOptions();
  SortList(BootOptionList, CompareByLegacyUsb);
  const Partitions partitions;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (!IsMatched(*option)) {
      DebugPrint("Skipping on orphaned option %a\n", option->Description.get());
      continue;
    }
    DumpBootOption(*option, wrappers.Count);
    VBOOT_OPTION_WRAPPER* wrapper = AppendNew(wrappers);
    if (wrapper != nullptr) {
      wrapper->Option = option;
      wrapper->HandlePath = PathOf(option->DeviceHandle);
      wrapper->BbsHandlePath =
          IsLegacyOption(*option) && option->BbsEntry != nullptr ? PathOf(BbsHandle(*option->BbsEntry)) : nullptr;
      FindDisk(*wrapper, partitions);
    }
  }
}

}  // namespace bds
