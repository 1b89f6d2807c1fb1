// Decides which option stands for which device of this boot. A device that an option claimed leaves the device list;
// what stays there is new.
//
// The texts printed here are fixed, for those who read logs by them. Some speak of an instance that is freed, or is
// null: they mean that it was accepted, refused, or the last one. "BSSIndex" is the BBS index.
#include "bootopt/device_path_tests.h"
#include "bootopt/dumps/device_list_report.h"
#include "bootopt/dumps/dumps.h"
#include "bootopt/handle_path.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kMatch[] = "MatchBootOptionsToDevices";

// FALSE: the option may not take the device, although its path designates it.
using MatchVeto = bool (*)(const BOOT_OPTION& option, const BOOT_DEVICE& device);

bool LegacyDevicesForLegacyOptions(const BOOT_OPTION& option, const BOOT_DEVICE& device) {
  return device.BbsIndex == kNoBbsIndex || IsLegacyOption(option);
}

constexpr MatchVeto kMatchVetoes[] = {
    LegacyDevicesForLegacyOptions,
};

bool VetoesAllow(const BOOT_OPTION& option, const BOOT_DEVICE& device) {
  for (const MatchVeto veto : kMatchVetoes) {
    if (!veto(option, device)) {
      return false;
    }
  }
  return true;
}

// True when every instance of the path designates the device.
bool EveryInstanceDesignates(Bytes path, const BOOT_DEVICE& device) {
  bool accepted = true;
  while (!path.empty() && accepted) {
    // Most paths are one instance, which ends as the tests want it.
    const bool whole = IsOneInstance(path);
    const auto* instance = reinterpret_cast<const DevicePath*>(path.data());
    const PoolPtr<DevicePath> copy = whole ? nullptr : CopyNextInstance(path);
    if (whole) {
      path = {};
    } else {
      instance = copy.get();
    }
    accepted = instance != nullptr && DesignatesDevice(instance, device);
    if (accepted) {
      DebugPrint("%a:Freeing DpInstance\n", kMatch);
    }
  }
  DebugPrint("--\n");
  return accepted;
}

// A firmware option knows its device by several paths, and all of them must agree. Another option's further paths
// are its loader's business.
bool PathsDesignate(const BOOT_OPTION& option, const BOOT_DEVICE& device) {
  Bytes rest{reinterpret_cast<const std::byte*>(option.FilePathList.get()),
             option.FilePathList ? option.FilePathListLength : 0};
  while (!rest.empty()) {
    const UINTN size = DevicePathSize(rest, NodeTypes::Any);
    if (size == 0 || !EveryInstanceDesignates(rest.first(size), device)) {
      return false;
    }
    if (option.FwBootOption == FALSE) {
      break;
    }
    rest = rest.subspan(size);
  }
  return true;
}

bool OptionMatchesDevice(const BOOT_OPTION& option, const BOOT_DEVICE& device) {
  if (!PathsDesignate(option, device)) {
    DebugPrint("%a:Freeing DpInstance since no other option\n", kMatch);
    return false;
  }
  DebugPrint("%a:DpInstance NULL\n", kMatch);
  if (!VetoesAllow(option, device)) {
    DebugPrint("%a:Freeing DpInstance since no other option\n", kMatch);
    return false;
  }
  return true;
}

// Group headers stand for no single device, and an option stands for one device only.
bool IsCandidate(const BOOT_OPTION& option, UINTN optionNumber, UINTN deviceNumber) {
  if (option.GroupHeader != FALSE) {
    DebugPrint("%a:Option %d %a is a Group Header, skipping\n", kMatch, optionNumber, option.Description.get());
    return false;
  }
  if (IsMatched(option)) {
    DebugPrint("%a:BootOption already matched with the Device %d:%d, skipping\n", kMatch, deviceNumber,
               option.BbsIndex);
    return false;
  }
  return true;
}

// Binds the device to the options that designate it: one legacy option, or any number of UEFI options.
bool MatchDevice(const BOOT_DEVICE& device, UINTN deviceNumber) {
  bool matched = false;
  UINTN optionNumber = 0;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    ++optionNumber;
    if (!IsCandidate(*option, optionNumber, deviceNumber)) {
      continue;
    }
    DebugPrint("%a:Trying to match Device %d BbsIndex %d to Option %d Desc:%S\n", kMatch, deviceNumber, device.BbsIndex,
               optionNumber, option->Description.get());
    if (!OptionMatchesDevice(*option, device)) {
      continue;
    }
    DebugPrint("%a:BootOptionList#%d(%d) matched with device BSSIndex %d\n", kMatch, optionNumber,
               option->BootOptionNumber, device.BbsIndex);
    UpdateBootOptionWithBootDeviceInfo(*option, device);
    matched = true;
    if (IsLegacyOption(*option)) {
      break;
    }
  }
  return matched;
}

bool IsFixedUefiDisk(const BOOT_DEVICE& device) {
  return device.BbsEntry == nullptr && IsOnFixedMedia(device.DeviceHandle);
}

}  // namespace

void MatchBootOptionsToDevices() {
  DumpBootOptionList(BootOptionList, "Before Matching Devices");
  AppendPolicyDebugText("This is a list of hardware that may be bootable.\n");
  AppendDeviceListToPolicyText();
  DebugPrint("\n__Boot device list__\n\n");
  PrintDeviceList();

  UINTN deviceNumber = 0;
  for (BOOT_DEVICE* device = BootDeviceList.First; device != nullptr;) {
    BOOT_DEVICE* next = device->Next;
    ++deviceNumber;
    DebugPrint("----------------------------------------\n");
    DebugPrint("\n%a:Device %d match Starts\n", kMatch, deviceNumber);
    const PoolWatch watch;
    device->Place = FindDevicePlace(device->DeviceHandle);
    const bool matched = MatchDevice(*device, deviceNumber);
    if (matched) {
      DebugPrint("%a:Matched so deleting (0x%x)Device#%d BBSIndex:%d from BootDeviceList\n", kMatch,
                 device->DeviceHandle, deviceNumber, device->BbsIndex);
    }
    // For want of memory an option may have refused its own device: it is neither made again nor deleted on this boot.
    gBootOptions.OrphansUncertain = gBootOptions.OrphansUncertain || watch.Exhausted();
    if (matched || watch.Exhausted()) {
      DeleteBootDevice(BootDeviceList, device);
    } else {
      device->Place = {};
    }
    device = next;
  }
}

void DeleteUnmatchedUefiHddBootDevices() {
  for (BOOT_DEVICE* device = BootDeviceList.First; device != nullptr;) {
    BOOT_DEVICE* next = device->Next;
    if (IsFixedUefiDisk(*device)) {
      DeleteBootDevice(BootDeviceList, device);
    }
    device = next;
  }
}

}  // namespace bds
