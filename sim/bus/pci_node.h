// One PCI function as its bus sees it: location, configuration space, and what its base address registers decode.
// Bus numbers are given out by walking the tree, so bridges tell primary, secondary and subordinate numbers that agree.
#pragma once

#include <array>

#include "sim/bus/device_tree.h"
#include "sim/firmware/device_path_builder.h"

namespace sim {

struct PciLocation {
  std::uint32_t segment = 0;
  std::uint8_t bus = 0;
  std::uint8_t device = 0;
  std::uint8_t function = 0;
};

class PciNode {
 public:
  static constexpr std::uint32_t kConfigSize = 4096;

  // `function` has to outlive the node; `multiFunction`: its device has other functions too.
  PciNode(const PciFunction& function, const PciLocation& location, DevicePath path, bool multiFunction);

  [[nodiscard]] const PciFunction& Function() const { return function_; }
  [[nodiscard]] const PciLocation& Location() const { return location_; }
  [[nodiscard]] const DevicePath& Path() const { return path_; }

  // Configuration space, little-endian, `width` 1, 2 or 4 bytes. Reads behind its end are all ones, writes lost.
  // Writable are the command register, the interrupt line, and base address registers within their size.
  [[nodiscard]] std::uint32_t ReadConfig(std::uint32_t offset, unsigned width) const;
  void WriteConfig(std::uint32_t offset, unsigned width, std::uint32_t value);

  // The described register with that index; null when the function has none.
  [[nodiscard]] const PciBar* Bar(std::uint8_t index) const;
  // The command register lets the function answer in its memory.
  [[nodiscard]] bool DecodesMemory() const { return (ReadConfig(4, 2) & 2) != 0; }
  // Memory address that the register decodes at; 0 for an absent one.
  [[nodiscard]] std::uint64_t BarAddress(std::uint8_t index) const;

  void SetBarAddress(std::uint8_t index, std::uint32_t address);
  void SetBridgeBuses(std::uint8_t primary, std::uint8_t secondary, std::uint8_t subordinate);

 private:
  void Put(std::uint32_t offset, unsigned width, std::uint32_t value);
  [[nodiscard]] bool IsBridge() const { return std::holds_alternative<PciBridge>(function_.controller); }

  const PciFunction& function_;
  PciLocation location_;
  DevicePath path_;
  std::array<std::uint8_t, kConfigSize> config_{};
};

// The present functions behind one root bridge in depth-first order, bridges before what lies behind them. Functions
// behind the last bus of the root bridge are left out. `nextAddress` is where the next memory range may lie; it moves
// on.
[[nodiscard]] std::vector<std::unique_ptr<PciNode>> EnumeratePci(const RootBridge& root, std::uint32_t& nextAddress);

// Reads or writes `width` bytes of what a register of the node decodes. False outside of it.
[[nodiscard]] bool ReadBar(const PciBar& bar, std::uint64_t offset, unsigned width, std::uint64_t& value);
[[nodiscard]] bool WriteBar(const PciBar& bar, std::uint64_t offset, unsigned width, std::uint64_t value);

// The transfer kinds that PCI I/O and root bridge I/O share: plain, fixed address, fixed buffer, of 1 to 8 bytes.
// Calls `unit(offset, width, buffer)` for each of `count` units; EFI_INVALID_PARAMETER for an unknown kind or no
// buffer.
template <typename Unit>
[[nodiscard]] EFI_STATUS TransferUnits(std::uint32_t kind, std::uint64_t offset, std::uint64_t count, void* buffer,
                                       Unit&& unit) {
  if (kind >= 12 || buffer == nullptr) return EFI_INVALID_PARAMETER;
  const unsigned width = 1U << (kind % 4);
  const bool fixedOffset = kind / 4 == 1;
  const bool fixedBuffer = kind / 4 == 2;
  auto* bytes = static_cast<std::byte*>(buffer);
  for (std::uint64_t i = 0; i < count; ++i) {
    const EFI_STATUS status = unit(offset, width, bytes);
    if (EFI_ERROR(status)) return status;
    if (!fixedOffset) offset += width;
    if (!fixedBuffer) bytes += width;
  }
  return EFI_SUCCESS;
}

}  // namespace sim
