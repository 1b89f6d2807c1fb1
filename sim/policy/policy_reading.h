// A boot policy read as the driver reads it, with everything that its author would want to know: the record that comes
// out, what the driver would refuse, and for each value whether it became what was meant.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "flexboot/policy_format.h"
#include "sim/policy/finding.h"
#include "sim/policy/loader_reading.h"

namespace sim {

// What the driver takes of one policy.
struct PolicyReading {
  FLEXBOOT_ORDER_HEADER header = {};
  std::vector<FLEXBOOT_TARGET> targets;          // as many as the header announces; all zero where the text had none
  std::vector<std::vector<LoaderText>> loaders;  // of each target, those that are not used too
  std::vector<PolicyFinding> findings;           // by line and column
  bool refused = false;
};

// The most that the driver reads of a policy's file.
inline constexpr std::size_t kPolicyTextLimit = 4095;

PolicyReading ReadPolicy(std::string_view text);

// A file's text. Throws std::runtime_error with the file's name when it cannot be read.
std::string ReadPolicyFile(const std::filesystem::path& file);

}  // namespace sim
