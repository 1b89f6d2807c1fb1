// PCI functions for tests: a PCI I/O interface on 64 bytes of configuration space.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "platform/pci_io.h"

namespace test {

struct FakePci {
  EFI_PCI_IO_PROTOCOL PciIo{};  // first, so that services find the record behind it
  std::array<UINT8, 64> Config{};
  UINTN Bus = 0, Device = 0, Function = 0;
  UINT64 Attributes = 0;
  UINT64 Supported = 0;
  UINT64 Enabled = 0;  // what Enable was asked for, all calls together
  bool ConfigFails = false;

  FakePci(UINT8 baseClass, UINT8 subclass, UINT16 vendor = 0x8086, UINT16 device = 0x1234) {
    Config[0] = static_cast<UINT8>(vendor);
    Config[1] = static_cast<UINT8>(vendor >> 8);
    Config[2] = static_cast<UINT8>(device);
    Config[3] = static_cast<UINT8>(device >> 8);
    Config[10] = subclass;
    Config[11] = baseClass;
    PciIo.Pci.Read = Read;
    PciIo.GetLocation = GetLocation;
    PciIo.Attributes = HandleAttributes;
  }
  FakePci(const FakePci&) = delete;

 private:
  static FakePci& Of(EFI_PCI_IO_PROTOCOL* pciIo) { return *reinterpret_cast<FakePci*>(pciIo); }

  static EFI_STATUS EFIAPI Read(EFI_PCI_IO_PROTOCOL* pciIo, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT32 offset, UINTN count,
                                VOID* buffer) {
    FakePci& pci = Of(pciIo);
    const UINTN unit = UINTN{1} << width;
    EXPECT_LT(width, EfiPciIoWidthFifoUint8);
    EXPECT_EQ(offset % unit, 0U) << "unaligned configuration access";
    if (pci.ConfigFails || offset + count * unit > pci.Config.size()) {
      return EFI_DEVICE_ERROR;
    }
    std::memcpy(buffer, pci.Config.data() + offset, count * unit);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI GetLocation(EFI_PCI_IO_PROTOCOL* pciIo, UINTN* segment, UINTN* bus, UINTN* device,
                                       UINTN* function) {
    const FakePci& pci = Of(pciIo);
    *segment = 0;
    *bus = pci.Bus;
    *device = pci.Device;
    *function = pci.Function;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI HandleAttributes(EFI_PCI_IO_PROTOCOL* pciIo,
                                            EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION operation, UINT64 attributes,
                                            UINT64* result) {
    FakePci& pci = Of(pciIo);
    switch (operation) {
      case EfiPciIoAttributeOperationGet:
        *result = pci.Attributes;
        return EFI_SUCCESS;
      case EfiPciIoAttributeOperationSupported:
        *result = pci.Supported;
        return EFI_SUCCESS;
      case EfiPciIoAttributeOperationEnable:
        EXPECT_EQ(attributes & ~pci.Supported, 0U) << "enables what is not supported";
        pci.Enabled |= attributes;
        return EFI_SUCCESS;
      default:
        return EFI_UNSUPPORTED;
    }
  }
};

}  // namespace test
