#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "sim/bmc/bmc.h"
#include "sim/cli/bmc_report.h"
#include "sim/cli/commands.h"
#include "sim/cli/policy_show.h"
#include "sim/cli/terminal.h"
#include "sim/server/policy_files.h"
#include "sim/server/server.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

struct PolicyOptions {
  fs::path file;
  bool once = false;

  PolicyFile Which() const { return once ? PolicyFile::OneTime : PolicyFile::Lasting; }
};

// A new policy is not what an older one's stale name says.
int SetPolicy(const fs::path& state, const PolicyOptions& options) {
  try {
    PutPolicy(state / "bmc", options.file, options.Which());
  } catch (const StateError& error) {
    return Fail(error.what());
  }
  FileStore(Bmc::FilesOf(state / "bmc")).Remove(StalePolicyName(options.Which()));
  fmt::print("{}: {}\n", PolicyName(options.Which()), options.once ? "for the next boot" : "for every boot");
  return kExitStarted;
}

int RemovePolicy(const fs::path& state, const PolicyOptions& options) {
  FileStore files(Bmc::FilesOf(state / "bmc"));
  const bool stale = files.Remove(StalePolicyName(options.Which()));
  const bool removed = files.Remove(PolicyName(options.Which()));
  return removed || stale ? int{kExitStarted}
                          : Fail(fmt::format("the BMC has no file \"{}\"", PolicyName(options.Which())));
}

struct ShownFile {
  PolicyFile which;
  bool stale;
  const char* meaning;
};
constexpr ShownFile kShown[] = {
    {PolicyFile::OneTime, false, "for the next boot"},
    {PolicyFile::Lasting, false, "for every boot"},
    {PolicyFile::OneTime, true, "was used for one boot"},
    {PolicyFile::Lasting, true, "no longer current: the boot order was changed at the BMC"},
};
constexpr std::string_view kMarker = "Dummy";

int ShowPolicies(const fs::path& state) {
  const fs::path folder = Bmc::FilesOf(state / "bmc");
  const FileStore files(folder);
  bool any = false;
  int status = kExitStarted;
  for (const ShownFile& shown : kShown) {
    const char* name = shown.stale ? StalePolicyName(shown.which) : PolicyName(shown.which);
    const auto bytes = files.Read(name);
    if (!bytes) {
      continue;
    }
    any = true;
    if (std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()) == kMarker) {
      fmt::print("{}: the platform called the policy stale\n", name);
      continue;
    }
    fmt::print("{}: {}\n", name, shown.meaning);
    if (ShowPolicyFile(folder / name) != kExitStarted) {
      status = kExitWrong;
    }
  }
  if (!any) {
    fmt::print("no policy\n");
  }
  return status;
}

}  // namespace

void AddBmcPolicy(CLI::App& bmc, const fs::path& state, int& status) {
  const auto options = std::make_shared<PolicyOptions>();
  CLI::App& command = *bmc.add_subcommand("policy", "Set, show or remove the boot policy on the BMC");
  command.require_subcommand(1);
  CLI::App& set = *command.add_subcommand("set", "Give the BMC a boot policy");
  set.add_option("FILE", options->file, "The policy")->required();
  set.add_flag("--once", options->once, "For the next boot only");
  set.callback([&state, &status, options] { status = SetPolicy(state, *options); });
  CLI::App& show = *command.add_subcommand("show", "Show the policies, stale ones too");
  show.callback([&state, &status] { status = ShowPolicies(state); });
  CLI::App& remove = *command.add_subcommand("remove", "Remove the policy, and what is left of a stale one");
  remove.add_flag("--once", options->once, "The one for the next boot");
  remove.callback([&state, &status, options] { status = RemovePolicy(state, *options); });
}

}  // namespace sim
