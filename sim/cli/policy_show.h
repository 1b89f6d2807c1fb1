// A boot policy shown as the record that the driver makes of it.
#pragma once

#include <filesystem>

namespace sim {

// Prints header and targets; of a policy that the driver refuses what is wrong with it. An exit status.
int ShowPolicyFile(const std::filesystem::path& file);

}  // namespace sim
