#include "core/pci_handles.h"

namespace bds {
namespace {

constexpr UINT32 kRevisionAndClass = 8;  // configuration offset of revision, interface, subclass and class
constexpr UINT32 kBaseClass = 11;

bool HasClass(EFI_HANDLE handle, UINT8 baseClass, UINT8 subclass) {
  auto* pciIo = HandleProtocol<EFI_PCI_IO_PROTOCOL>(handle);
  UINT32 value = 0;
  if (pciIo == nullptr || EFI_ERROR(pciIo->Pci.Read(pciIo, EfiPciIoWidthUint32, kRevisionAndClass, 1, &value))) {
    return false;
  }
  return static_cast<UINT8>(value >> 24) == baseClass && static_cast<UINT8>(value >> 16) == subclass;
}

}  // namespace

EFI_STATUS ReadPciClass(EFI_PCI_IO_PROTOCOL& pciIo, UINT8& baseClass) {
  return pciIo.Pci.Read(&pciIo, EfiPciIoWidthUint8, kBaseClass, 1, &baseClass);
}

EFI_STATUS ReadPciClass(EFI_HANDLE handle, UINT8& baseClass) {
  EFI_PCI_IO_PROTOCOL* pciIo = nullptr;
  const EFI_STATUS status = OpenOn(handle, pciIo);
  return EFI_ERROR(status) ? status : ReadPciClass(*pciIo, baseClass);
}

EFI_STATUS GetPciHandlesByClass(UINT8 baseClass, UINT8 subclass, PciHandles& found) {
  const HandleBuffer all = HandlesWith<EFI_PCI_IO_PROTOCOL>();
  found.Count = 0;
  found.Handles = AllocateArray<EFI_HANDLE>(all.size());
  if (!found.Handles) {
    return EFI_OUT_OF_RESOURCES;
  }
  for (EFI_HANDLE handle : all) {
    if (HasClass(handle, baseClass, subclass)) {
      found.Handles[found.Count++] = handle;
    }
  }
  return found.Count != 0 ? EFI_SUCCESS : EFI_NOT_FOUND;
}

}  // namespace bds
