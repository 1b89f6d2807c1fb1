#include "bootopt/device_path_tests.h"

#include "bootopt/file_path_builders.h"
#include "bootopt/names/identity_name.h"
#include "bootopt/names/option_name.h"
#include "bootopt/vendor_nodes.h"
#include "platform/block_io.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

bool IsNodeOfSize(const DevicePath* node, UINT8 type, UINT8 subType, UINTN size) {
  return IsNode(node, type, subType) && NodeLength(node) >= size;
}

// What may stand behind the device in a path that designates it: nothing, or the file to load from it.
bool IsEndOrFile(const DevicePath* node) {
  return IsEnd(node) || IsNode(node, MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP) ||
         IsNode(node, MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP);
}

bool IsAnyUsbDeviceNode(const DevicePath* node) {
  if (!IsNodeOfSize(node, MESSAGING_DEVICE_PATH, MSG_USB_CLASS_DP, sizeof(USB_CLASS_DEVICE_PATH))) {
    return false;
  }
  const auto usb = LoadUnaligned<USB_CLASS_DEVICE_PATH>(node);
  return usb.VendorId == 0xFFFF && usb.ProductId == 0xFFFF && usb.DeviceClass == 0xFF && usb.DeviceSubClass == 0xFF &&
         usb.DeviceProtocol == 0xFF;
}

bool BeginsWithPlace(const DevicePath* instance, const DEVICE_PLACE& place) {
  const UINTN size =
      DevicePathSize(Bytes{reinterpret_cast<const std::byte*>(instance), kMaxDevicePathSize}, NodeTypes::Any);
  return place.Path != nullptr && size > place.PathSize && EqualMemory(instance, place.Path, place.PathSize);
}

// A handle without the protocol says that it is something else; every other error says nothing.
EFI_STATUS NotThereOr(EFI_STATUS status) { return status == EFI_UNSUPPORTED ? EFI_NOT_FOUND : status; }

struct TestRow {
  DevicePathTest Test;
  const char* Name;
};

// The exact places of UEFI devices first, then the marks that legacy devices are known by.
constexpr TestRow kRows[] = {
    {LocateDevicePathTest, "LocateDevicePathTest"},
    {PartitionDevicePathTest, "PartitionDevicePathTest"},
    {UsbClassDevicePathTest, "UsbClassDevicePathTest"},
    {BbsDevicePathTest, "BbsDevicePathTest"},
    {NuvBbsDevicePathTest, "NuvBbsDevicePathTest"},
    {NuvDeviceNameDevicePathTest, "NuvDeviceNameDevicePathTest"},
    {VeyraStandinDevicePathTest, "VeyraStandinDevicePathTest"},
};
static_assert(std::size(kRows) == kDevicePathTestCount);

consteval auto Tests() {
  std::array<DevicePathTest, kDevicePathTestCount> tests{};
  for (UINTN i = 0; i < kDevicePathTestCount; ++i) {
    tests[i] = kRows[i].Test;
  }
  return tests;
}

consteval auto Names() {
  std::array<const char*, kDevicePathTestCount + 1> names{};
  for (UINTN i = 0; i < kDevicePathTestCount; ++i) {
    names[i] = kRows[i].Name;
  }
  names[kDevicePathTestCount] = "    ";
  return names;
}

}  // namespace

constexpr std::array<DevicePathTest, kDevicePathTestCount> kDevicePathTests = Tests();
constexpr std::array<const char*, kDevicePathTestCount + 1> kDevicePathTestNames = Names();

bool DesignatesDevice(const DevicePath* instance, const BOOT_DEVICE& device) {
  for (const DevicePathTest test : kDevicePathTests) {
    if (test(instance, device)) {
      return true;
    }
  }
  return false;
}

bool LocateDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device) {
  // What the firmware would locate the device by: its own path, with which the instance has to begin.
  const DEVICE_PLACE& place = device.Place;
  if (device.DeviceHandle == nullptr || (place.Known != FALSE && !BeginsWithPlace(instance, place))) {
    return false;
  }
  auto* remaining = const_cast<DevicePath*>(instance);
  EFI_HANDLE located = nullptr;
  const EFI_STATUS status = BootServices()->LocateDevicePath(&ProtocolGuid<DevicePath>, &remaining, &located);
  return !EFI_ERROR(status) && located == device.DeviceHandle && IsEndOrFile(remaining);
}

EFI_STATUS FindPartitionNode(EFI_HANDLE handle, const DevicePath*& node) {
  node = nullptr;
  if (handle == nullptr) {
    return EFI_NOT_FOUND;
  }
  EFI_BLOCK_IO_PROTOCOL* blockIo = nullptr;
  if (const EFI_STATUS status = OpenOn(handle, blockIo); EFI_ERROR(status)) {
    return NotThereOr(status);
  }
  if (blockIo == nullptr || blockIo->Media == nullptr || blockIo->Media->LogicalPartition == FALSE) {
    return EFI_NOT_FOUND;
  }
  DevicePath* path = nullptr;
  if (const EFI_STATUS status = OpenOn(handle, path); EFI_ERROR(status)) {
    return NotThereOr(status);
  }
  const DevicePath* last = LastNode(path);
  node = IsHardDriveNode(last) ? last : nullptr;
  return node != nullptr ? EFI_SUCCESS : EFI_NOT_FOUND;
}

DEVICE_PLACE FindDevicePlace(EFI_HANDLE handle) {
  DEVICE_PLACE place;
  place.Known = TRUE;
  place.Path = DevicePathOf(handle);
  DevicePathWalker walker(place.Path);
  while (walker.Node() != nullptr && !IsEnd(walker.Node())) {
    walker.Next();
  }
  place.PathSize = walker.Offset();
  static_cast<void>(FindPartitionNode(handle, place.PartitionNode));
  return place;
}

bool PartitionDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device) {
  if (!IsHardDriveNode(instance)) {
    return false;
  }
  const DevicePath* node = device.Place.PartitionNode;
  if (device.Place.Known == FALSE) {
    static_cast<void>(FindPartitionNode(device.DeviceHandle, node));
  }
  return node != nullptr && IsSamePartition(instance, node);
}

bool UsbClassDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device) {
  constexpr UINT8 kUsbNodes[] = {MSG_USB_DP, MSG_USB_CLASS_DP, MSG_USB_WWID_DP};
  if (device.DeviceHandle == nullptr || !IsAnyUsbDeviceNode(instance)) {
    return false;
  }
  const DevicePath* path = DevicePathOf(device.DeviceHandle);
  for (const UINT8 subType : kUsbNodes) {
    if (FindNode(path, MESSAGING_DEVICE_PATH, subType) != nullptr) {
      return true;
    }
  }
  return false;
}

bool BbsDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device) {
  constexpr UINTN kTypeEnd = offsetof(BBS_BBS_DEVICE_PATH, StatusFlag);
  if (device.BbsEntry == nullptr || instance->Type != BBS_DEVICE_PATH || NodeLength(instance) < kTypeEnd) {
    return false;
  }
  const auto optionType = LoadUnaligned<UINT16>(instance + 1);
  const UINT16 deviceType = device.BbsEntry->DeviceType;
  const bool same = deviceType == optionType;
  DebugPrint("%a:Device Type=%0x and Option Type=%0x are %a same type\n", "BbsDevicePathTest", deviceType, optionType,
             same ? "of" : "not of");
  return same;
}

bool NuvBbsDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device) {
  if (device.BbsEntry == nullptr || !IsVendorNode(instance, HARDWARE_DEVICE_PATH, HW_VENDOR_DP, kLegacyLocationGuid) ||
      NodeLength(instance) < sizeof(LEGACY_LOCATION_DEVICE_PATH)) {
    return false;
  }
  constexpr UINTN kData = sizeof(VENDOR_DEVICE_PATH);
  const LEGACY_LOCATION_DEVICE_PATH expected = LegacyLocationNode(*device.BbsEntry, device.BbsIndex);
  return EqualMemory(NodeBytes(instance).data() + kData, AsBytes(expected).data() + kData, sizeof(expected) - kData);
}

bool NuvDeviceNameDevicePathTest(const DevicePath* instance, const BOOT_DEVICE& device) {
  if (!IsVendorNode(instance, HARDWARE_DEVICE_PATH, HW_VENDOR_DP, kDeviceNameGuid)) {
    return false;
  }
  auto name = AllocateArray<CHAR16>(kNameCapacity);
  if (!name) {
    return false;
  }
  BOOT_OPTION scratch;
  scratch.FwBootOption = TRUE;
  scratch.DeviceHandle = device.DeviceHandle;
  scratch.BbsIndex = device.BbsIndex;
  scratch.BbsEntry = device.BbsEntry;
  const UINTN length = BuildDeviceIdentityName(scratch, {name.get(), kNameCapacity});
  const Bytes stored = NodeBytes(instance).subspan(sizeof(VENDOR_DEVICE_PATH));
  return length != 0 && stored.size() == (length + 1) * sizeof(CHAR16) &&
         EqualMemory(stored.data(), name.get(), stored.size());
}

}  // namespace bds
