// bds-sim explain: boots a copy of a server's state and tells why each option stands where it stands.
#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

#include "sim/cli/commands.h"
#include "sim/cli/explain_text.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/terminal.h"
#include "sim/server/policy_files.h"
#include "sim/server/server.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

// The state itself is not touched.
class StateCopy {
 public:
  explicit StateCopy(const fs::path& state) {
    std::string place = (fs::temp_directory_path() / "bds-sim-explain-XXXXXX").string();
    if (mkdtemp(place.data()) == nullptr) {
      throw StateError("no temporary folder for a copy of the state can be made");
    }
    folder_ = place;
    if (!state.empty() && fs::exists(state)) {
      fs::copy(state, folder_, fs::copy_options::recursive);
    }
  }
  ~StateCopy() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  StateCopy(const StateCopy&) = delete;
  StateCopy& operator=(const StateCopy&) = delete;
  const fs::path& Folder() const { return folder_; }

 private:
  fs::path folder_;
};

}  // namespace

int RunExplain(const ExplainArguments& arguments) {
  constexpr unsigned kStarts = 5;
  const StateCopy copy(arguments.state);
  Server server(LoadServerDescription(arguments.description), {copy.Folder(), {}});
  if (!arguments.policy.empty()) {
    PutPolicy(server.BmcFolder(), arguments.policy, PolicyFile::Lasting);
  }
  const Style style = OutputStyle();
  PolicyListener listener;
  PolicyStory story;
  BootRequest request;
  TellStory(request, listener, server, story);
  BootReport report = server.Boot(request);
  for (unsigned start = 1; start < kStarts && report.outcome.end == BootEnd::Reset; ++start) {
    fmt::print("Start {} ended with a reset; what follows is of the next one.\n", start);
    report = server.Boot(request);
  }
  fmt::print("{}\n{}", style.Strong(PrintableText(server.Description().name)), ExplainText(story, report, style));
  return kExitStarted;
}

}  // namespace sim
