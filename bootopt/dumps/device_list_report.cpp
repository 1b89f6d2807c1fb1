#include "bootopt/dumps/device_list_report.h"

#include "bootopt/bbs_table.h"
#include "bootopt/boot_lists.h"
#include "bootopt/names/device_path_text.h"
#include "bootopt/names/pci_info.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

struct DebugOutput {
  template <typename... Args>
  void operator()(FormatString<std::type_identity_t<Args>...> format, const Args&... args) const {
    DebugPrint(format, args...);
  }
  void Long(const char* text) const { DebugPrintText(text); }
};

struct PolicyText {
  template <typename... Args>
  void operator()(FormatString<std::type_identity_t<Args>...> format, const Args&... args) const {
    AppendPolicyDebugText(format, args...);
  }
  void Long(const char* text) const { AppendPolicyDebugText("%a", text); }
};

PoolPtr<char> TextOrNotProvided(std::span<const char> text) {
  constexpr char kNotProvided[] = "not provided";
  return text.empty() ? CopyText(kNotProvided, sizeof(kNotProvided) - 1) : CopyText(text.data(), text.size());
}

template <typename Output>
void ReportPciLocation(const Output& print, const EFI_DEVICE_PATH_PROTOCOL* path) {
  PCI_DEVICE_INFO info;
  if (EFI_ERROR(GetPciDeviceInfo(path, info))) {
    return;
  }
  if (info.VendorName != nullptr) {
    print("PCI dev(%d:%d:%d) %s %s\n", info.Bus, info.Device, info.Function, info.VendorName, info.SubClassName);
    return;
  }
  print("PCI dev(%d:%d:%d) (ID=0x%x) %s\n", info.Bus, info.Device, info.Function, info.VendorId, info.SubClassName);
}

template <typename Output>
void ReportHandle(const Output& print, EFI_HANDLE handle) {
  const EFI_DEVICE_PATH_PROTOCOL* path = DevicePathOf(handle);
  if (path == nullptr) {
    print("  No device path on handle (0x%x)\n", handle);
    return;
  }
  ReportPciLocation(print, path);
  print(" DP:\n   ");
  PoolPtr<char> text;
  if (EFI_ERROR(DevicePathToText(path, text))) {
    print("   CAN'T CONVERT!\n");
    return;
  }
  print.Long(text.get());
  print("\n");
}

template <typename Output>
void ReportDevice(const Output& print, const BOOT_DEVICE& device, UINTN number) {
  if (device.DeviceName) {
    print("Device %d %s ", number, device.DeviceName.get());
  } else {
    print("Device %d (0x%x) ", number, device.DeviceHandle);
  }
  if (device.BbsEntry == nullptr) {
    print("UEFI optn information\n");
  } else {
    print("BbsIndex %d information\n", device.BbsIndex);
    const PoolPtr<char> manufacturer = TextOrNotProvided(BbsManufacturer(*device.BbsEntry));
    const PoolPtr<char> description = TextOrNotProvided(BbsDescription(*device.BbsEntry));
    print("  BBS device: %a  --  %a\n", manufacturer.get(), description.get());
  }
  if (device.DeviceHandle != nullptr) {
    ReportHandle(print, device.DeviceHandle);
  }
}

template <typename Output>
void ReportDeviceList(const Output& print) {
  UINTN number = 0;
  for (const BOOT_DEVICE* device = BootDeviceList.First; device != nullptr; device = device->Next) {
    ReportDevice(print, *device, ++number);
  }
}

}  // namespace

void PrintDeviceList() { ReportDeviceList(DebugOutput{}); }
void AppendDeviceListToPolicyText() { ReportDeviceList(PolicyText{}); }

}  // namespace bds
