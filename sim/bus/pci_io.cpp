// Accesses reach the node's configuration space and the models behind its base address registers.
#include "sim/bus/pci_io.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

// Facts about the function that software reads and cannot change.
constexpr UINT64 kFixed = EFI_PCI_IO_ATTRIBUTE_EMBEDDED_DEVICE | EFI_PCI_IO_ATTRIBUTE_EMBEDDED_ROM;
constexpr UINT64 kVga = EFI_PCI_IO_ATTRIBUTE_VGA_MEMORY | EFI_PCI_IO_ATTRIBUTE_VGA_IO |
                        EFI_PCI_IO_ATTRIBUTE_VGA_PALETTE_IO | EFI_PCI_IO_ATTRIBUTE_VGA_IO_16 |
                        EFI_PCI_IO_ATTRIBUTE_VGA_PALETTE_IO_16;
constexpr UINT64 kTicksPerMillisecond = 10'000;

}  // namespace

PciIo::PciIo(PciNode& node, const BusContext& context) : node_(node), context_(context) {
  const PciFunction& function = node.Function();
  supported_ = EFI_PCI_DEVICE_ENABLE | EFI_PCI_IO_ATTRIBUTE_DUAL_ADDRESS_CYCLE;
  if ((function.classCode >> 16) == 0x03) supported_ |= kVga;
  enabled_ = EFI_PCI_IO_ATTRIBUTE_IO | (function.memory ? EFI_PCI_IO_ATTRIBUTE_MEMORY : 0);
  if (function.embedded) {
    supported_ |= EFI_PCI_IO_ATTRIBUTE_EMBEDDED_DEVICE;
    enabled_ |= EFI_PCI_IO_ATTRIBUTE_EMBEDDED_DEVICE;
  }
  rom_ = function.optionRom;
  pciIo_.object = this;
  pciIo_.protocol = {.PollMem = Poll<false>,
                     .PollIo = Poll<true>,
                     .Mem = {AccessBar<false, false>, AccessBar<true, false>},
                     .Io = {AccessBar<false, true>, AccessBar<true, true>},
                     .Pci = {AccessConfig<false>, AccessConfig<true>},
                     .CopyMem = CopyMem,
                     .Map = Map,
                     .Unmap = Unmap,
                     .AllocateBuffer = AllocateBuffer,
                     .FreeBuffer = FreeBuffer,
                     .Flush = Flush,
                     .GetLocation = GetLocation,
                     .Attributes = Attributes,
                     .GetBarAttributes = GetBarAttributes,
                     .SetBarAttributes = SetBarAttributes,
                     .RomSize = rom_.size(),
                     .RomImage = rom_.empty() ? nullptr : rom_.data()};
}

void PciIo::Tell(const char* what, unsigned width, const std::string& place, std::uint64_t value) const {
  const PciLocation& at = node_.Location();
  context_.tellPci(fmt::format("pci {:02x}:{:02x}.{} {} {} bits, {}: {:0{}x}", at.bus, at.device, at.function, what,
                               8 * width, place, value, 2 * width));
}

template <bool kWrite, bool kIoSpace>
EFI_STATUS EFIAPI PciIo::AccessBar(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 index,
                                   UINT64 offset, UINTN count, VOID* buffer) {
  const PciIo& io = From(self);
  const PciBar* bar = io.node_.Bar(index);
  if (bar == nullptr || bar->io != kIoSpace) return EFI_UNSUPPORTED;
  const bool decodes = kIoSpace || io.node_.DecodesMemory();
  const bool told = io.Tells();
  const auto place = [index](std::uint64_t at) { return fmt::format("bar {} + {:x}", index, at); };
  return TransferUnits(width, offset, count, buffer, [&](std::uint64_t at, unsigned size, std::byte* unit) {
    std::uint64_t value = 0;
    if constexpr (kWrite) {
      std::memcpy(&value, unit, size);
      if (told) io.Tell("write", size, place(at), value);
      if (decodes && !WriteBar(*bar, at, size, value)) return EFI_UNSUPPORTED;
      io.Wrote();
      return EFI_SUCCESS;
    }
    // Nobody answers for a function that does not decode: all ones, as the bus has it.
    if (!decodes) {
      value = ~std::uint64_t{0} >> (64 - 8 * size);
    } else if (!ReadBar(*bar, at, size, value)) {
      return EFI_UNSUPPORTED;
    }
    if (told) io.Tell("read", size, place(at), value);
    std::memcpy(unit, &value, size);
    return EFI_SUCCESS;
  });
}

template <bool kWrite>
EFI_STATUS EFIAPI PciIo::AccessConfig(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT32 offset,
                                      UINTN count, VOID* buffer) {
  PciIo& io = From(self);
  PciNode& node = io.node_;
  const bool told = io.Tells();
  return TransferUnits(width, offset, count, buffer, [&](std::uint64_t at, unsigned size, std::byte* unit) {
    if (size > 4 || at % size != 0) return EFI_INVALID_PARAMETER;
    if (at >= PciNode::kConfigSize) return EFI_UNSUPPORTED;
    std::uint32_t value = 0;
    if constexpr (kWrite) {
      std::memcpy(&value, unit, size);
      if (told) io.Tell("write", size, fmt::format("configuration + {:x}", at), value);
      node.WriteConfig(static_cast<std::uint32_t>(at), size, value);
      io.Wrote();
    } else {
      value = node.ReadConfig(static_cast<std::uint32_t>(at), size);
      std::memcpy(unit, &value, size);
    }
    return EFI_SUCCESS;
  });
}

template <bool kIoSpace>
EFI_STATUS EFIAPI PciIo::Poll(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 index, UINT64 offset,
                              UINT64 mask, UINT64 value, UINT64 delay, UINT64* result) {
  if (result == nullptr || width >= EfiPciIoWidthFifoUint8) return EFI_INVALID_PARAMETER;
  PciIo& io = From(self);
  // A register changes by being touched or not at all, so one more look at the end of the delay settles it.
  for (int attempt = 0; attempt < 2; ++attempt) {
    UINT64 read = 0;
    const EFI_STATUS status = AccessBar<false, kIoSpace>(self, width, index, offset, 1, &read);
    if (EFI_ERROR(status)) return status;
    *result = read;
    if ((read & mask) == value) return EFI_SUCCESS;
    if (attempt == 0 && io.context_.wait) io.context_.wait(delay / kTicksPerMillisecond);
  }
  return EFI_TIMEOUT;
}

EFI_STATUS EFIAPI PciIo::CopyMem(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 toBar, UINT64 to,
                                 UINT8 fromBar, UINT64 from, UINTN count) {
  if (width > EfiPciIoWidthUint64) return EFI_INVALID_PARAMETER;
  const PciBar* target = From(self).node_.Bar(toBar);
  const PciBar* source = From(self).node_.Bar(fromBar);
  if (target == nullptr || source == nullptr || target->io || source->io) return EFI_UNSUPPORTED;
  const unsigned size = 1U << width;
  const bool backwards = toBar == fromBar && to > from;  // overlapping ranges copy as if through a buffer
  for (UINTN i = 0; i < count; ++i) {
    const UINTN unit = backwards ? count - 1 - i : i;
    std::uint64_t value = 0;
    if (!ReadBar(*source, from + unit * size, size, value)) return EFI_UNSUPPORTED;
    if (!WriteBar(*target, to + unit * size, size, value)) return EFI_UNSUPPORTED;
  }
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::Map(EFI_PCI_IO_PROTOCOL*, EFI_PCI_IO_PROTOCOL_OPERATION operation, VOID* host, UINTN* size,
                             EFI_PHYSICAL_ADDRESS* device, VOID** mapping) {
  if (operation >= EfiPciIoOperationMaximum || host == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  if (device == nullptr || mapping == nullptr) return EFI_INVALID_PARAMETER;
  *device = reinterpret_cast<EFI_PHYSICAL_ADDRESS>(host);
  *mapping = host;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::Unmap(EFI_PCI_IO_PROTOCOL*, VOID* mapping) {
  return mapping == nullptr ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::AllocateBuffer(EFI_PCI_IO_PROTOCOL* self, EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE memory,
                                        UINTN pages, VOID** host, UINT64) {
  if (host == nullptr || pages == 0) return EFI_INVALID_PARAMETER;
  if (memory != EfiBootServicesData && memory != EfiRuntimeServicesData) return EFI_INVALID_PARAMETER;
  constexpr UINTN kMaximumPages = 4096;
  if (pages > kMaximumPages) return EFI_OUT_OF_RESOURCES;
  PciIo& io = From(self);
  io.buffers_.push_back(std::make_unique<std::byte[]>(pages * 4096));
  *host = io.buffers_.back().get();
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::FreeBuffer(EFI_PCI_IO_PROTOCOL* self, UINTN, VOID* host) {
  auto& buffers = From(self).buffers_;
  const auto found = std::find_if(buffers.begin(), buffers.end(), [&](const auto& held) { return held.get() == host; });
  if (found == buffers.end()) return EFI_INVALID_PARAMETER;
  buffers.erase(found);
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::Flush(EFI_PCI_IO_PROTOCOL*) { return EFI_SUCCESS; }

EFI_STATUS EFIAPI PciIo::GetLocation(EFI_PCI_IO_PROTOCOL* self, UINTN* segment, UINTN* bus, UINTN* device,
                                     UINTN* function) {
  if (segment == nullptr || bus == nullptr || device == nullptr || function == nullptr) return EFI_INVALID_PARAMETER;
  const PciLocation& location = From(self).node_.Location();
  *segment = location.segment;
  *bus = location.bus;
  *device = location.device;
  *function = location.function;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::Attributes(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_ATTRIBUTE_OPERATION operation,
                                    UINT64 attributes, UINT64* result) {
  PciIo& io = From(self);
  const bool asks = operation == EfiPciIoAttributeOperationGet || operation == EfiPciIoAttributeOperationSupported;
  if (operation >= EfiPciIoAttributeOperationMaximum || (asks && result == nullptr)) return EFI_INVALID_PARAMETER;
  if (!asks && (attributes & ~io.supported_) != 0) return EFI_UNSUPPORTED;
  switch (operation) {
    case EfiPciIoAttributeOperationGet:
      *result = io.enabled_;
      return EFI_SUCCESS;
    case EfiPciIoAttributeOperationSupported:
      *result = io.supported_;
      return EFI_SUCCESS;
    case EfiPciIoAttributeOperationSet:
      io.enabled_ = (attributes & ~kFixed) | (io.enabled_ & kFixed);
      break;
    case EfiPciIoAttributeOperationEnable:
      io.enabled_ |= attributes & ~kFixed;
      break;
    default:
      io.enabled_ &= ~(attributes & ~kFixed);
      break;
  }
  if (result != nullptr) *result = io.enabled_;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::GetBarAttributes(EFI_PCI_IO_PROTOCOL* self, UINT8 index, UINT64* supports, VOID** resources) {
  PciIo& io = From(self);
  if (supports == nullptr && resources == nullptr) return EFI_INVALID_PARAMETER;
  const PciBar* bar = io.node_.Bar(index);
  if (bar == nullptr) return EFI_UNSUPPORTED;
  if (supports != nullptr) *supports = io.supported_ & ~kFixed;
  if (resources == nullptr) return EFI_SUCCESS;
  // One QWORD address space descriptor (ACPI 6.4, 6.4.3.5.1) and the end tag.
  constexpr std::size_t kSize = 46 + 2;
  auto* out = static_cast<std::uint8_t*>(io.context_.allocatePool(kSize));
  if (out == nullptr) return EFI_OUT_OF_RESOURCES;
  std::memset(out, 0, kSize);
  const std::uint64_t base = io.node_.BarAddress(index);
  const std::uint64_t fields[5] = {bar->io ? 0U : 32U, base, base + bar->size - 1, 0, bar->size};
  out[0] = 0x8A;
  out[1] = 43;
  out[3] = bar->io ? 1 : 0;
  std::memcpy(out + 6, fields, sizeof fields);
  out[46] = 0x79;
  *resources = out;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PciIo::SetBarAttributes(EFI_PCI_IO_PROTOCOL* self, UINT64 attributes, UINT8 index, UINT64* offset,
                                          UINT64* length) {
  const PciIo& io = From(self);
  if (offset == nullptr || length == nullptr) return EFI_INVALID_PARAMETER;
  return io.node_.Bar(index) == nullptr || (attributes & ~io.supported_) != 0 ? EFI_UNSUPPORTED : EFI_SUCCESS;
}

}  // namespace sim
