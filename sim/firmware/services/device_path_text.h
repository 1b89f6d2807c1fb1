// Device paths as text and back (UEFI 2.10, 10.6): the form in which people, logs and boot managers write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/device_path.h"

namespace sim {

struct DevicePathTextStyle {
  bool displayOnly = false;    // shorter, cannot be read back
  bool allowShortcuts = true;  // PciRoot(0x0) instead of Acpi(PNP0A03,0x0)
};

// One node without any delimiter. `node` holds the header and the whole node; nodes too short for their kind, and
// kinds without a text of their own, give the general form, e.g. Path(1,7,00FF).
std::u16string DeviceNodeText(std::span<const std::byte> node, DevicePathTextStyle style = {});

// A whole path, all instances: nodes joined by '/', instances by ','. Nothing when the bytes are no well-formed path.
std::optional<std::u16string> DevicePathText(std::span<const std::byte> path, DevicePathTextStyle style = {});

// The bytes of one node, without end node. What no node's name matches is a file path node, as the standard has it.
// Nothing when a known node's arguments make no sense.
std::optional<std::vector<std::byte>> DeviceNodeFromText(std::u16string_view text);
// A whole path with its end node; nothing when one of its nodes cannot be read.
std::optional<std::vector<std::byte>> DevicePathFromText(std::u16string_view text);

}  // namespace sim
