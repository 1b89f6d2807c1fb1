// Boot#### variables as the simulator's own parts read them: bounded, and independent of the driver's reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/firmware/device_path_builder.h"

namespace sim {

struct LoadOption {
  std::uint32_t attributes = 0;
  std::u16string name;
  std::vector<DevicePath> paths;        // in the file path list, one after the other
  std::vector<std::byte> optionalData;  // everything behind the paths

  bool Active() const { return (attributes & LOAD_OPTION_ACTIVE) != 0; }
  bool Hidden() const { return (attributes & LOAD_OPTION_HIDDEN) != 0; }
  // The path of its device, behind the mask of one that was absent; nothing when it has no path.
  const DevicePath* Device() const;
  // Its first node is a BBS node.
  bool Legacy() const;
  // The firmware driver's markers at the front of the optional data.
  bool FirmwareMarked() const;
  bool GroupMarked() const;
};

// The path that the driver puts in front while a device is absent.
bool IsMask(const DevicePath& path);

// Nothing when the bytes are no load option (UEFI 2.10, 3.1.3).
std::optional<LoadOption> ParseLoadOption(std::span<const std::byte> bytes);

// The number of "Boot####" with four hexadecimal digits in either case; nothing for any other name.
std::optional<std::uint16_t> BootOptionNumber(std::u16string_view name);

// The nodes of a path with their headers, the end nodes left out.
std::vector<std::span<const std::byte>> PathNodes(const DevicePath& path);

// A path as text in UTF-8; the number of its bytes in parentheses when it has no text.
std::string DevicePathToUtf8(const DevicePath& path);

}  // namespace sim
