// Option ROM images as they lie behind a PCI function (PCI Local Bus 3.0, 6.3.1): one for the legacy BIOS, made for
// functions that are to have one, and found in what a function publishes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sim {

// An image of 512 bytes whose code returns at once. classCode: class, subclass, programming interface.
[[nodiscard]] std::vector<std::byte> LegacyOptionRom(std::uint16_t vendorId, std::uint16_t deviceId,
                                                     std::uint32_t classCode);

// True when one of the ROM's images is code for the legacy BIOS. A ROM that breaks off or contradicts itself ends the
// search.
[[nodiscard]] bool HasLegacyImage(std::span<const std::byte> rom);

}  // namespace sim
