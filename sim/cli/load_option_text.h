// A load option (UEFI 2.10, 3.1.3) as lines of text, with the markers and member records of the boot driver's own
// options.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace sim {

// The bytes of a Boot####, Driver#### or SysPrep#### variable. One line says what is wrong when they are none.
std::vector<std::string> LoadOptionText(std::span<const std::byte> bytes);

// Bytes as lines of 16, at most `most` of them, with what is left out counted.
std::vector<std::string> HexText(std::span<const std::byte> bytes, std::size_t most = 64);

}  // namespace sim
