#include "sim/server/policy_files.h"

#include <fmt/format.h>

#include "sim/bmc/bmc.h"
#include "sim/bmc/file_store.h"
#include "sim/server/host_file.h"
#include "sim/server/server.h"

namespace sim {
namespace {

struct Names {
  const char* current;
  const char* stale;
};
constexpr Names kNames[] = {{"ConfigPolicy.xml", "ConfigPolicy_stale.xml"},
                            {"OneTimeConfigPolicy.xml", "OneTimeConfigPolicy_stale.xml"}};

const Names& NamesOf(PolicyFile file) { return kNames[static_cast<std::size_t>(file)]; }

}  // namespace

const char* PolicyName(PolicyFile file) { return NamesOf(file).current; }

const char* StalePolicyName(PolicyFile file) { return NamesOf(file).stale; }

void PutPolicy(const std::filesystem::path& bmcFolder, const std::filesystem::path& policy, PolicyFile file) {
  const auto text = ReadHostFile(policy);
  if (!text) {
    throw StateError(fmt::format("{}: cannot be read", policy.string()));
  }
  FileStore store(Bmc::FilesOf(bmcFolder));
  if (!store.Write(PolicyName(file), {text->begin(), text->end()})) {
    throw StateError(fmt::format("{}: the BMC takes no file of this size, or cannot keep it", policy.string()));
  }
}

}  // namespace sim
