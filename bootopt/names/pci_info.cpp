#include "bootopt/names/pci_info.h"

#include "bootopt/names/pci_tables.h"
#include "platform/pci_io.h"
#include "support/device_path.h"
#include "support/protocols.h"

namespace bds {
namespace {

// Configuration header (PCI Local Bus 3.0, 6.1): the three bytes from the programming interface to the class.
constexpr UINT32 kVendorIdOffset = 0;
constexpr UINT32 kInterfaceOffset = 9;

struct ClassCode {
  UINT8 Interface;
  UINT8 SubClass;
  UINT8 Class;
};

}  // namespace

EFI_STATUS GetPciDeviceInfo(const EFI_DEVICE_PATH_PROTOCOL* path, PCI_DEVICE_INFO& info) {
  info = {};
  if (DevicePathSize(path) == 0) {
    return EFI_INVALID_PARAMETER;
  }
  auto* remaining = const_cast<EFI_DEVICE_PATH_PROTOCOL*>(path);
  EFI_HANDLE handle = nullptr;
  EFI_STATUS status = BootServices()->LocateDevicePath(&ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &remaining, &handle);
  if (EFI_ERROR(status)) {
    return status;
  }
  EFI_PCI_IO_PROTOCOL* pci = nullptr;
  status = OpenOn(handle, pci);
  if (EFI_ERROR(status)) {
    return status;
  }
  UINTN segment = 0;
  PCI_DEVICE_INFO found;
  status = pci->GetLocation(pci, &segment, &found.Bus, &found.Device, &found.Function);
  if (EFI_ERROR(status)) {
    return status;
  }
  ClassCode code{};
  status = pci->Pci.Read(pci, EfiPciIoWidthUint16, kVendorIdOffset, 1, &found.VendorId);
  if (EFI_ERROR(status)) {
    return status;
  }
  status = pci->Pci.Read(pci, EfiPciIoWidthUint8, kInterfaceOffset, sizeof(code), &code);
  if (EFI_ERROR(status)) {
    return status;
  }
  found.ClassName = PciClassName(code.Class);
  found.SubClassName = PciSubClassName(code.Class, code.SubClass);
  found.InterfaceName = PciInterfaceName(code.Class, code.SubClass, code.Interface);
  found.VendorName = PciVendorName(found.VendorId);
  info = found;
  return EFI_SUCCESS;
}

}  // namespace bds
