#include "bootopt/file_path_builders.h"

#include "bootopt/bbs_table.h"
#include "bootopt/names/identity_name.h"
#include "bootopt/names/option_name.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

using FilePathBuilder = bool (*)(BOOT_OPTION& option);

// All are run, so that the option is known by its type, its place and its name.
constexpr FilePathBuilder kFilePathBuilders[] = {
    BuildLegacyFilePath,
    BuildEfiFilePath,
    BuildLegacyLocationFilePath,
    BuildDeviceNameFilePath,
};

// Puts the pieces behind what FilePathList holds. False, and nothing changed, when the result would be longer than a
// load option can say or the pool is exhausted.
bool AppendBytes(BOOT_OPTION& option, Bytes first, Bytes second = {}, Bytes third = {}) {
  const UINTN oldLength = option.FilePathList ? option.FilePathListLength : 0;
  const UINTN length = oldLength + first.size() + second.size() + third.size();
  if (length > kMaxFilePathListLength) {
    return false;
  }
  PoolPtr<DevicePath> joined(static_cast<DevicePath*>(AllocatePool(length)));
  if (!joined) {
    return false;
  }
  ByteWriter writer({reinterpret_cast<std::byte*>(joined.get()), length});
  writer.WriteBytes(option.FilePathList.get(), oldLength);
  writer.WriteBytes(first);
  writer.WriteBytes(second);
  writer.WriteBytes(third);
  option.FilePathList = std::move(joined);
  option.FilePathListLength = length;
  return true;
}

Bytes PathBytes(const DevicePath* path) { return {reinterpret_cast<const std::byte*>(path), DevicePathSize(path)}; }

UINT8 InstanceNumber(UINT16 bbsIndex) {
  BbsInfo bbs;
  if (bbsIndex >= kBbsTableEntries || EFI_ERROR(GetBbsInfo(bbs))) {
    return 0;
  }
  return BbsInstanceNumber(bbs.Table, bbsIndex);
}

}  // namespace

bool BuildFilePathList(BOOT_OPTION& option) {
  bool built = false;
  for (const FilePathBuilder builder : kFilePathBuilders) {
    built = builder(option) || built;
  }
  return built;
}

bool BuildLegacyFilePath(BOOT_OPTION& option) {
  if (option.FilePathList || option.BbsEntry == nullptr) {
    DebugPrint("%a:Skipping Legacy File path creation for Option=%d BbsIndex=%d\n", "BuildLegacyFilePath",
               option.BootOptionNumber, option.BbsIndex);
    return false;
  }
  DebugPrint("%a:Creating legacy BBS device path for Option=%d BbsIndex=%d\n", "BuildLegacyFilePath",
             option.BootOptionNumber, option.BbsIndex);
  BBS_BBS_DEVICE_PATH node{};  // status flags 0, empty description
  node.Header = NodeHeader<BBS_BBS_DEVICE_PATH>(BBS_DEVICE_PATH, BBS_BBS_DP);
  node.DeviceType = option.BbsEntry->DeviceType;
  return AppendBytes(option, AsBytes(node), AsBytes(kEndEntireNode));
}

bool BuildEfiFilePath(BOOT_OPTION& option) {
  if (option.FilePathList || option.BbsEntry != nullptr || option.DeviceHandle == nullptr) {
    DebugPrint("%a:Skipping EFI File path for Option=%d I\n", "BuildEfiFilePath", option.BootOptionNumber);
    return false;
  }
  const Bytes path = PathBytes(DevicePathOf(option.DeviceHandle));
  if (path.empty()) {
    DebugPrint("%a:Skipping EFI File path for Option=%d II\n", "BuildEfiFilePath", option.BootOptionNumber);
    return false;
  }
  DebugPrint("%a:Creating EFI File path for Option=%d\n", "BuildEfiFilePath", option.BootOptionNumber);
  return AppendBytes(option, path);
}

bool BuildLegacyLocationFilePath(BOOT_OPTION& option) {
  if (option.BbsEntry == nullptr) {
    DebugPrint("%a:Skipping Legacy Location path creation for Option=%d BbsIndex=%d\n", "BuildLegacyLocationFilePath",
               option.BootOptionNumber, option.BbsIndex);
    return false;
  }
  const Bytes path = PathBytes(option.DeviceHandle != nullptr ? DevicePathOf(option.DeviceHandle) : nullptr);
  if (!path.empty()) {
    return AppendBytes(option, path);
  }
  const LEGACY_LOCATION_DEVICE_PATH node = LegacyLocationNode(*option.BbsEntry, option.BbsIndex);
  DebugPrint("%a:Creating legacy Location path for Option=%d BbsIndex=%d Instance=%d\n", "BuildLegacyLocationFilePath",
             option.BootOptionNumber, option.BbsIndex, node.Instance);
  return AppendBytes(option, AsBytes(node), AsBytes(kEndEntireNode));
}

bool BuildDeviceNameFilePath(BOOT_OPTION& option) {
  auto name = AllocateArray<CHAR16>(kNameCapacity);
  const UINTN length = name ? BuildDeviceIdentityName(option, {name.get(), kNameCapacity}) : 0;
  if (length == 0) {
    return false;
  }
  const UINTN nameSize = (length + 1) * sizeof(CHAR16);
  VENDOR_DEVICE_PATH node{};
  const UINTN nodeSize = sizeof(node) + nameSize;
  node.Header = {
      HARDWARE_DEVICE_PATH, HW_VENDOR_DP, {static_cast<UINT8>(nodeSize & 0xFF), static_cast<UINT8>(nodeSize >> 8)}};
  node.Guid = kDeviceNameGuid;
  return AppendBytes(option, AsBytes(node), {reinterpret_cast<const std::byte*>(name.get()), nameSize},
                     AsBytes(kEndEntireNode));
}

LEGACY_LOCATION_DEVICE_PATH LegacyLocationNode(const BBS_TABLE& entry, UINT16 bbsIndex) {
  LEGACY_LOCATION_DEVICE_PATH node{};
  node.Vendor.Header = NodeHeader<LEGACY_LOCATION_DEVICE_PATH>(HARDWARE_DEVICE_PATH, HW_VENDOR_DP);
  node.Vendor.Guid = kLegacyLocationGuid;
  node.Bus = static_cast<UINT8>(entry.Bus);
  node.Device = static_cast<UINT8>(entry.Device);
  node.Function = static_cast<UINT8>(entry.Function);
  node.Class = static_cast<UINT8>(entry.Class);
  node.SubClass = static_cast<UINT8>(entry.SubClass);
  node.Instance = InstanceNumber(bbsIndex);
  return node;
}

PoolPtr<DevicePath> BuildShortFormPath(const DevicePath* partition, const CHAR16* filePath, UINTN& size) {
  constexpr UINTN kMaxNodeLength = 0xFFFF;
  const UINTN textSize = (TextLength(filePath) + 1) * sizeof(CHAR16);
  const UINTN fileSize = sizeof(DevicePath) + textSize;
  size = NodeLength(partition) + fileSize + sizeof(kEndEntireNode);
  PoolPtr<DevicePath> path(fileSize <= kMaxNodeLength ? static_cast<DevicePath*>(AllocatePool(size)) : nullptr);
  if (path) {
    const DevicePath header{
        MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP, {static_cast<UINT8>(fileSize & 0xFF), static_cast<UINT8>(fileSize >> 8)}};
    ByteWriter writer({reinterpret_cast<std::byte*>(path.get()), size});
    writer.WriteBytes(NodeBytes(partition));
    writer.Write(header);
    writer.WriteBytes(filePath, textSize);
    writer.Write(kEndEntireNode);
  }
  return path;
}

}  // namespace bds
