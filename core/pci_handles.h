// PCI functions by class, and the two configuration facts that the core asks for.
#pragma once

#include "platform/pci_io.h"
#include "support/protocols.h"

namespace bds {

inline constexpr UINT8 kPciClassMassStorage = 0x01;
inline constexpr UINT8 kPciClassNetwork = 0x02;
inline constexpr UINT8 kPciClassDisplay = 0x03;
inline constexpr UINT8 kPciClassBridge = 0x06;
inline constexpr UINT8 kPciSubclassIsaBridge = 0x01;
inline constexpr UINT8 kPciClassSerialBus = 0x0C;
inline constexpr UINT8 kPciSubclassUsb = 0x03;

// The base class of the function (configuration byte 11).
[[nodiscard]] EFI_STATUS ReadPciClass(EFI_PCI_IO_PROTOCOL& pciIo, UINT8& baseClass);
// The same for the function on the handle; the status of opening its PCI I/O when it has none.
[[nodiscard]] EFI_STATUS ReadPciClass(EFI_HANDLE handle, UINT8& baseClass);

// Owned array of handles, usable in a range-based for.
struct PciHandles {
  PoolPtr<EFI_HANDLE> Handles;
  UINTN Count = 0;

  EFI_HANDLE* begin() const { return Handles.get(); }
  EFI_HANDLE* end() const { return Handles.get() + Count; }
};

// The functions of this class and subclass in the handle database's order; EFI_NOT_FOUND when there is none.
[[nodiscard]] EFI_STATUS GetPciHandlesByClass(UINT8 baseClass, UINT8 subclass, PciHandles& found);

}  // namespace bds
