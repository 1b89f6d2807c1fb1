#include "bootopt/names/identity_name.h"

#include "bootopt/handle_path.h"
#include "bootopt/names/bbs_names.h"
#include "bootopt/names/identify_data.h"
#include "bootopt/names/name_writer.h"
#include "bootopt/names/network_name.h"
#include "platform/usb_io.h"
#include "support/protocols.h"

namespace bds {
namespace {

using IdentityBuilder = UINTN (*)(const BOOT_OPTION& option, std::span<CHAR16> buffer);

// The whole serial number field as it stands: byte pairs are not swapped, blanks and NULs stay. So every disk that can
// be identified has an identity, and never falls back on its BBS description, which is rewritten when an option is made
// and fresh at the next boot.
UINTN AtaSerial(const BOOT_OPTION& option, std::span<CHAR16> buffer) {
  NameWriter name(buffer);
  const PoolPtr<UINT8> identify = ReadIdentifyData(WholeDiskHandle(option.DeviceHandle));
  if (identify) {
    name.Append(std::span(reinterpret_cast<const char*>(identify.get() + kSerialOffset), kSerialLength));
  }
  return name.Length();
}

UINTN UsbSerial(const BOOT_OPTION& option, std::span<CHAR16> buffer) {
  constexpr UINT16 kUnitedStatesEnglish = 0x0409;
  NameWriter name(buffer);
  const DevicePath* remaining = nullptr;
  auto* usb = HandleProtocol<EFI_USB_IO_PROTOCOL>(
      LocateOnPath(ProtocolGuid<EFI_USB_IO_PROTOCOL>, option.DeviceHandle, remaining));
  EFI_USB_DEVICE_DESCRIPTOR device{};
  if (usb == nullptr || EFI_ERROR(usb->UsbGetDeviceDescriptor(usb, &device)) || device.StrSerialNumber == 0) {
    return 0;
  }
  PoolPtr<CHAR16> serial;
  if (!EFI_ERROR(WatchedStatus(
          usb->UsbGetStringDescriptor(usb, kUnitedStatesEnglish, device.StrSerialNumber, serial.put()))) &&
      serial) {
    name.Append(serial.get());
  }
  return name.Length();
}

constexpr IdentityBuilder kIdentityBuilders[] = {AtaSerial, UsbSerial, BuildNetworkName, BuildBbsName};

}  // namespace

UINTN BuildDeviceIdentityName(const BOOT_OPTION& option, std::span<CHAR16> buffer) {
  NameWriter(buffer).Clear();
  for (const IdentityBuilder build : kIdentityBuilders) {
    const UINTN length = build(option, buffer);
    if (length != 0) {
      return length;
    }
  }
  return 0;
}

}  // namespace bds
