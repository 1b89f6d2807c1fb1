// Boot policies among the BMC's files: the lasting one, and the one for a single boot, which comes before it.
#pragma once

#include <filesystem>

namespace sim {

enum class PolicyFile { Lasting, OneTime };

// As the driver asks for it, and what it is called once it is no longer current.
const char* PolicyName(PolicyFile file);
const char* StalePolicyName(PolicyFile file);

// Copies a policy of the host's into the BMC's file store below the folder, in place of the one that is there. Throws
// StateError when it cannot be read or written.
void PutPolicy(const std::filesystem::path& bmcFolder, const std::filesystem::path& policy, PolicyFile file);

}  // namespace sim
