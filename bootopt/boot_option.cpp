#include "bootopt/boot_option.h"

#include "support/device_path.h"
#include "support/memory.h"

namespace bds {
namespace {

// The first node of the option's path when all of it lies within the path; null otherwise.
const DevicePath* FirstNode(const BOOT_OPTION& option) {
  const DevicePath* node = option.FilePathList.get();
  if (node == nullptr || option.FilePathListLength < sizeof(DevicePath) ||
      NodeLength(node) > option.FilePathListLength) {
    return nullptr;
  }
  return node;
}

}  // namespace

bool IsLegacyOption(const BOOT_OPTION& option) {
  if (!option.FilePathList) {
    return option.BbsEntry != nullptr;
  }
  const DevicePath* node = FirstNode(option);
  return node != nullptr && node->Type == BBS_DEVICE_PATH;
}

bool IsMatched(const BOOT_OPTION& option) { return option.BbsEntry != nullptr || option.DeviceHandle != nullptr; }

bool IsOrphan(const BOOT_OPTION& option) { return option.GroupHeader == FALSE && !IsMatched(option); }

bool IsUefiHardDiskOption(const BOOT_OPTION& option) {
  return IsNode(FirstNode(option), MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
}

bool IsBuiltInApplicationNode(const EFI_DEVICE_PATH_PROTOCOL* node) {
  return IsVendorNode(node, MEDIA_DEVICE_PATH, MEDIA_VENDOR_DP, kBuiltInApplicationGuid) &&
         NodeLength(node) == sizeof(VENDOR_DEVICE_PATH);
}

bool IsBuiltInApplicationOption(const BOOT_OPTION& option) { return IsBuiltInApplicationNode(FirstNode(option)); }

bool FirstNodeDeviceType(const BOOT_OPTION& option, UINT16& deviceType) {
  const DevicePath* node = FirstNode(option);
  if (node == nullptr || NodeLength(node) < sizeof(DevicePath) + sizeof(UINT16)) {
    return false;
  }
  deviceType = LoadUnaligned<UINT16>(node + 1);
  return true;
}

}  // namespace bds
