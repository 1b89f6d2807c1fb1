// Configuration space read through a root bridge, which reaches every bus of the server.
#pragma once

#include "platform/pci_root_bridge_io.h"
#include "support/protocols.h"

namespace bds {

inline constexpr UINT8 kVendorIdRegister = 0x00;
inline constexpr UINT8 kDeviceIdRegister = 0x02;
inline constexpr UINT16 kNoVendor = 0xFFFF;  // nobody answers at that location

class RootBridgeReads {
 public:
  [[nodiscard]] EFI_STATUS Open() { return LocateProtocol(bridge_); }

  // Reads a register of its own width, UINT8 or UINT16.
  template <typename Register>
  [[nodiscard]] EFI_STATUS Read(UINTN bus, UINTN device, UINTN function, UINT8 offset, Register& value) const {
    constexpr auto kWidth = sizeof(Register) == 1 ? EfiPciWidthUint8 : EfiPciWidthUint16;
    const UINT64 address = UINT64{bus} << 24 | UINT64{device} << 16 | UINT64{function} << 8 | offset;
    return bridge_->Pci.Read(bridge_, kWidth, address, 1, &value);
  }

 private:
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* bridge_ = nullptr;
};

}  // namespace bds
