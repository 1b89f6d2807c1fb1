// PCI root bridge I/O (UEFI 2.10, 14.2): configuration cycles by address, and memory decoded by the functions behind.
#pragma once

#include "platform/pci_root_bridge_io.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/bus/pci_space.h"

namespace sim {

class RootBridgeIo final : public DeviceObject {
 public:
  // `root` and `space` have to outlive this. The functions behind it are numbered here and put into the space, as
  // firmware does before any driver runs. Its configuration cycles reach all functions of the space in its segment.
  RootBridgeIo(const RootBridge& root, PciSpace& space, const BusContext& context);

  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(io_.protocol)}; }
  [[nodiscard]] const std::vector<std::unique_ptr<PciNode>>& Nodes() const { return nodes_; }
  [[nodiscard]] DevicePath Path() const;
  static RootBridgeIo& From(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* protocol) {
    return Backed<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, RootBridgeIo>::From(protocol);
  }

 private:
  using Self = EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL;
  using Width = EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH;

  template <bool kWrite>
  static EFI_STATUS EFIAPI AccessMemory(Self* self, Width width, UINT64 address, UINTN count, VOID* buffer);
  template <bool kWrite>
  static EFI_STATUS EFIAPI AccessConfig(Self* self, Width width, UINT64 address, UINTN count, VOID* buffer);
  static EFI_STATUS EFIAPI AccessIo(Self* self, Width width, UINT64 address, UINTN count, VOID* buffer);
  static EFI_STATUS EFIAPI Poll(Self* self, Width width, UINT64 address, UINT64 mask, UINT64 value, UINT64 delay,
                                UINT64* result);
  static EFI_STATUS EFIAPI PollIo(Self* self, Width width, UINT64 address, UINT64 mask, UINT64 value, UINT64 delay,
                                  UINT64* result);
  static EFI_STATUS EFIAPI CopyMem(Self* self, Width width, UINT64 to, UINT64 from, UINTN count);
  static EFI_STATUS EFIAPI Map(Self* self, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION operation, VOID* host, UINTN* size,
                               EFI_PHYSICAL_ADDRESS* device, VOID** mapping);
  static EFI_STATUS EFIAPI Unmap(Self* self, VOID* mapping);
  static EFI_STATUS EFIAPI AllocateBuffer(Self* self, EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memory, UINTN pages,
                                          VOID** host, UINT64 attributes);
  static EFI_STATUS EFIAPI FreeBuffer(Self* self, UINTN pages, VOID* host);
  static EFI_STATUS EFIAPI Flush(Self* self);
  static EFI_STATUS EFIAPI GetAttributes(Self* self, UINT64* supports, UINT64* attributes);
  static EFI_STATUS EFIAPI SetAttributes(Self* self, UINT64 attributes, UINT64* base, UINT64* length);
  static EFI_STATUS EFIAPI Configuration(Self* self, VOID** resources);

  [[nodiscard]] PciNode* NodeAt(UINT64 address) const;
  [[nodiscard]] const PciBar* BarAt(UINT64 address, std::uint64_t& offset) const;

  const RootBridge& root_;
  const PciSpace& space_;
  BusContext context_;
  std::vector<std::unique_ptr<PciNode>> nodes_;
  std::array<std::uint8_t, 48> resources_{};  // bus number range and end tag
  Backed<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL, RootBridgeIo> io_;
};

}  // namespace sim
