// Cycles to places where nothing is answer all ones, as on a real bus.
#include "sim/bus/root_bridge_io.h"

#include <cstring>

namespace sim {

RootBridgeIo::RootBridgeIo(const RootBridge& root, PciSpace& space, const BusContext& context)
    : root_(root), space_(space), context_(context), nodes_(EnumeratePci(root, space.nextAddress)) {
  for (const auto& node : nodes_) space.Add(*node);
  const std::uint64_t buses[5] = {0, root.firstBus, root.lastBus, 0, std::uint64_t{root.lastBus} - root.firstBus + 1};
  resources_[0] = 0x8A;  // ACPI 6.4, 6.4.3.5.1: QWORD address space descriptor, type 2: bus numbers
  resources_[1] = 43;
  resources_[3] = 2;
  std::memcpy(resources_.data() + 6, buses, sizeof buses);
  resources_[46] = 0x79;
  io_.object = this;
  io_.protocol = {.ParentHandle = nullptr,
                  .PollMem = Poll,
                  .PollIo = PollIo,
                  .Mem = {AccessMemory<false>, AccessMemory<true>},
                  .Io = {AccessIo, AccessIo},
                  .Pci = {AccessConfig<false>, AccessConfig<true>},
                  .CopyMem = CopyMem,
                  .Map = Map,
                  .Unmap = Unmap,
                  .AllocateBuffer = AllocateBuffer,
                  .FreeBuffer = FreeBuffer,
                  .Flush = Flush,
                  .GetAttributes = GetAttributes,
                  .SetAttributes = SetAttributes,
                  .Configuration = Configuration,
                  .SegmentNumber = root.segment};
}

DevicePath RootBridgeIo::Path() const {
  DevicePath path;
  path.Acpi(root_.express ? 0x0A0841D0 : 0x0A0341D0, root_.uid);
  return path;
}

PciNode* RootBridgeIo::NodeAt(UINT64 address) const {
  const auto byte = [address](unsigned shift) { return static_cast<std::uint8_t>(address >> shift); };
  if (byte(16) > 31 || byte(8) > 7) return nullptr;
  return space_.At({root_.segment, byte(24), byte(16), byte(8)});
}

const PciBar* RootBridgeIo::BarAt(UINT64 address, std::uint64_t& offset) const {
  for (const auto& node : nodes_) {
    for (const PciBar& bar : node->Function().bars) {
      const std::uint64_t base = node->BarAddress(bar.index);
      if (base == 0 || address < base || address - base >= bar.size) continue;
      offset = address - base;
      return &bar;
    }
  }
  return nullptr;
}

template <bool kWrite>
EFI_STATUS EFIAPI RootBridgeIo::AccessMemory(Self* self, Width width, UINT64 address, UINTN count, VOID* buffer) {
  const RootBridgeIo& io = From(self);
  return TransferUnits(width, address, count, buffer, [&](std::uint64_t at, unsigned size, std::byte* unit) {
    std::uint64_t offset = 0;
    std::uint64_t value = ~std::uint64_t{0};
    const PciBar* bar = io.BarAt(at, offset);
    if constexpr (kWrite) {
      std::memcpy(&value, unit, size);
      return bar == nullptr || WriteBar(*bar, offset, size, value) ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
    }
    if (bar != nullptr && !ReadBar(*bar, offset, size, value)) return EFI_INVALID_PARAMETER;
    std::memcpy(unit, &value, size);
    return EFI_SUCCESS;
  });
}

template <bool kWrite>
EFI_STATUS EFIAPI RootBridgeIo::AccessConfig(Self* self, Width width, UINT64 address, UINTN count, VOID* buffer) {
  const RootBridgeIo& io = From(self);
  PciNode* node = io.NodeAt(address);
  // UEFI 2.10, 14.2: an extended register offset, when not 0, stands in the upper half.
  const std::uint64_t first = (address >> 32) != 0 ? address >> 32 : address & 0xFF;
  return TransferUnits(width, first, count, buffer, [&](std::uint64_t at, unsigned size, std::byte* unit) {
    if (size > 4 || at % size != 0 || at >= PciNode::kConfigSize) return EFI_INVALID_PARAMETER;
    std::uint32_t value = UINT32_MAX;
    if constexpr (kWrite) {
      std::memcpy(&value, unit, size);
      if (node != nullptr) node->WriteConfig(static_cast<std::uint32_t>(at), size, value);
    } else {
      if (node != nullptr) value = node->ReadConfig(static_cast<std::uint32_t>(at), size);
      std::memcpy(unit, &value, size);
    }
    return EFI_SUCCESS;
  });
}

EFI_STATUS EFIAPI RootBridgeIo::AccessIo(Self*, Width, UINT64, UINTN, VOID*) { return EFI_UNSUPPORTED; }

EFI_STATUS EFIAPI RootBridgeIo::Poll(Self* self, Width width, UINT64 address, UINT64 mask, UINT64 value, UINT64 delay,
                                     UINT64* result) {
  if (result == nullptr || width >= EfiPciWidthFifoUint8) return EFI_INVALID_PARAMETER;
  const RootBridgeIo& io = From(self);
  for (int attempt = 0; attempt < 2; ++attempt) {
    UINT64 read = 0;
    if (const EFI_STATUS status = AccessMemory<false>(self, width, address, 1, &read); EFI_ERROR(status)) return status;
    *result = read;
    if ((read & mask) == value) return EFI_SUCCESS;
    if (attempt == 0 && io.context_.wait) io.context_.wait(delay / 10'000);
  }
  return EFI_TIMEOUT;
}

EFI_STATUS EFIAPI RootBridgeIo::PollIo(Self*, Width, UINT64, UINT64, UINT64, UINT64, UINT64*) {
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI RootBridgeIo::CopyMem(Self* self, Width width, UINT64 to, UINT64 from, UINTN count) {
  if (width > EfiPciWidthUint64) return EFI_INVALID_PARAMETER;
  for (UINTN i = 0; i < count; ++i) {
    const UINTN unit = to > from ? count - 1 - i : i;
    UINT64 value = 0;
    const UINT64 offset = unit << width;
    if (const EFI_STATUS status = AccessMemory<false>(self, width, from + offset, 1, &value); EFI_ERROR(status)) {
      return status;
    }
    if (const EFI_STATUS status = AccessMemory<true>(self, width, to + offset, 1, &value); EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI RootBridgeIo::Map(Self*, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_OPERATION operation, VOID* host, UINTN* size,
                                    EFI_PHYSICAL_ADDRESS* device, VOID** mapping) {
  if (operation >= EfiPciOperationMaximum || host == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  if (device == nullptr || mapping == nullptr) return EFI_INVALID_PARAMETER;
  *device = reinterpret_cast<EFI_PHYSICAL_ADDRESS>(host);
  *mapping = host;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI RootBridgeIo::Unmap(Self*, VOID* mapping) {
  return mapping == nullptr ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
}

EFI_STATUS EFIAPI RootBridgeIo::AllocateBuffer(Self*, EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE, UINTN, VOID**, UINT64) {
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI RootBridgeIo::FreeBuffer(Self*, UINTN, VOID*) { return EFI_INVALID_PARAMETER; }

EFI_STATUS EFIAPI RootBridgeIo::Flush(Self*) { return EFI_SUCCESS; }

EFI_STATUS EFIAPI RootBridgeIo::GetAttributes(Self*, UINT64* supports, UINT64* attributes) {
  if (supports == nullptr && attributes == nullptr) return EFI_INVALID_PARAMETER;
  const UINT64 all = EFI_PCI_ATTRIBUTE_VGA_MEMORY | EFI_PCI_ATTRIBUTE_VGA_IO | EFI_PCI_ATTRIBUTE_ISA_IO;
  if (supports != nullptr) *supports = all;
  if (attributes != nullptr) *attributes = all;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI RootBridgeIo::SetAttributes(Self*, UINT64 attributes, UINT64*, UINT64*) {
  return attributes == 0 ? EFI_SUCCESS : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI RootBridgeIo::Configuration(Self* self, VOID** resources) {
  if (resources == nullptr) return EFI_INVALID_PARAMETER;
  *resources = From(self).resources_.data();
  return EFI_SUCCESS;
}

}  // namespace sim
