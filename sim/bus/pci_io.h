// PCI I/O (UEFI 2.10, 14.4) of one function.
#pragma once

#include "platform/pci_io.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/bus/pci_node.h"

namespace sim {

class PciIo final : public DeviceObject {
 public:
  // `node` has to outlive this.
  PciIo(PciNode& node, const BusContext& context);

  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(pciIo_.protocol)}; }
  [[nodiscard]] PciNode& Node() { return node_; }
  static PciIo& From(EFI_PCI_IO_PROTOCOL* protocol) { return Backed<EFI_PCI_IO_PROTOCOL, PciIo>::From(protocol); }

 private:
  // Tells of an access to a network controller's registers, when anybody listens.
  [[nodiscard]] bool Tells() const { return IsNetwork() && context_.tellsPci && context_.tellsPci(); }
  [[nodiscard]] bool IsNetwork() const { return node_.Function().classCode >> 16 == 0x02; }
  void Wrote() const {
    if (IsNetwork() && context_.onPciWrite) context_.onPciWrite();
  }
  void Tell(const char* what, unsigned width, const std::string& place, std::uint64_t value) const;

  template <bool kWrite, bool kIoSpace>
  static EFI_STATUS EFIAPI AccessBar(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 bar,
                                     UINT64 offset, UINTN count, VOID* buffer);
  template <bool kWrite>
  static EFI_STATUS EFIAPI AccessConfig(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT32 offset,
                                        UINTN count, VOID* buffer);
  template <bool kIoSpace>
  static EFI_STATUS EFIAPI Poll(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 bar, UINT64 offset,
                                UINT64 mask, UINT64 value, UINT64 delay, UINT64* result);
  static EFI_STATUS EFIAPI CopyMem(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 toBar, UINT64 to,
                                   UINT8 fromBar, UINT64 from, UINTN count);
  static EFI_STATUS EFIAPI Map(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_OPERATION operation, VOID* host,
                               UINTN* size, EFI_PHYSICAL_ADDRESS* device, VOID** mapping);
  static EFI_STATUS EFIAPI Unmap(EFI_PCI_IO_PROTOCOL* self, VOID* mapping);
  static EFI_STATUS EFIAPI AllocateBuffer(EFI_PCI_IO_PROTOCOL* self, EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memory,
                                          UINTN pages, VOID** host, UINT64 attributes);
  static EFI_STATUS EFIAPI FreeBuffer(EFI_PCI_IO_PROTOCOL* self, UINTN pages, VOID* host);
  static EFI_STATUS EFIAPI Flush(EFI_PCI_IO_PROTOCOL* self);
  static EFI_STATUS EFIAPI GetLocation(EFI_PCI_IO_PROTOCOL* self, UINTN* segment, UINTN* bus, UINTN* device,
                                       UINTN* function);
  static EFI_STATUS EFIAPI Attributes(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION operation,
                                      UINT64 attributes, UINT64* result);
  static EFI_STATUS EFIAPI GetBarAttributes(EFI_PCI_IO_PROTOCOL* self, UINT8 bar, UINT64* supports, VOID** resources);
  static EFI_STATUS EFIAPI SetBarAttributes(EFI_PCI_IO_PROTOCOL* self, UINT64 attributes, UINT8 bar, UINT64* offset,
                                            UINT64* length);

  PciNode& node_;
  BusContext context_;
  UINT64 supported_ = 0;
  UINT64 enabled_ = 0;
  std::vector<std::byte> rom_;
  std::vector<std::unique_ptr<std::byte[]>> buffers_;
  Backed<EFI_PCI_IO_PROTOCOL, PciIo> pciIo_;
};

}  // namespace sim
