// bds-sim bmc DIR report and bds-sim bmc DIR policy: the boot policy among the BMC's files, and what came of it.
#pragma once

#include <filesystem>

namespace CLI {
class App;
}

namespace sim {

// Adds both to the command `bmc`. state is the state folder, read when a subcommand runs, and status the exit status
// that it sets; both outlive the command.
void AddBmcReport(CLI::App& bmc, const std::filesystem::path& state, int& status);
void AddBmcPolicy(CLI::App& bmc, const std::filesystem::path& state, int& status);

}  // namespace sim
