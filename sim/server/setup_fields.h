// The bytes of the Setup record that the driver reads, by the names that descriptions and the command line give them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct SetupField {
  const char* name;
  std::size_t offset;
  std::size_t size;  // bytes, each a number of its own
  const char* meaning;
};
// In the order of their offsets.
std::span<const SetupField> SetupFields();
// Null for a name that is none's.
const SetupField* FindSetupField(std::string_view name);

// The field's value: "1", or "0 2 1 2 2 1" of a field of several bytes; "beyond the record's end" for a shorter record.
std::string SetupFieldText(const SetupField& field, std::span<const std::uint8_t> setup);
// "uefi_mode 0, described 1" for each field that differs.
std::vector<std::string> SetupDifferences(std::span<const std::uint8_t> setup, std::span<const std::uint8_t> described);

}  // namespace sim
