// bds-sim bmc DIR order: the boot order table that the BMC holds, looked at and changed as its user would.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>

namespace sim {

// Adds the subcommand; `state` and `status` outlive the parse.
void AddBmcOrder(CLI::App& bmc, const std::filesystem::path& state, int& status);

}  // namespace sim
