// bds-sim boot: one described server, booted once or several times, with the resets that its firmware asks for.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>

#include "sim/cli/commands.h"
#include "sim/cli/explain_text.h"
#include "sim/cli/findings_text.h"
#include "sim/cli/json_report.h"
#include "sim/cli/options_text.h"
#include "sim/cli/policy_variables.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/terminal.h"
#include "sim/server/policy_files.h"

namespace sim {
namespace {

LoaderPolicy PolicyOf(const BootArguments& arguments) {
  LoaderPolicy policy;
  if (arguments.execute) {
    policy.action = LoaderAction::Execute;
  }
  if (arguments.loaderStatus) {
    policy.action = LoaderAction::Answer;
    policy.status = *arguments.loaderStatus;
  }
  return policy;
}

// The power came back: what cut it does not cut it again.
void DropPowerFaults(std::vector<std::string>& faults) {
  std::erase_if(faults, [](const std::string& words) { return words.starts_with("power"); });
}

class BootRun {
 public:
  explicit BootRun(const BootArguments& arguments)
      : arguments_(arguments),
        server_(LoadServerDescription(arguments.description), {arguments.state, arguments.image}),
        style_(OutputStyle()) {
    request_.loader = PolicyOf(arguments);
    request_.legacyBootStatus = arguments.legacyStatus.value_or(EFI_SUCCESS);
    request_.debugMask = arguments.debugMask;
    request_.faults = arguments.faults;
    const auto traces = [&arguments](const char* what) { return std::ranges::count(arguments.trace, what) != 0; };
    request_.trace = traces("calls");
    request_.tracePci = traces("pci");
    HearPolicy();
    OpenLog();
    CheckJson();
    ConnectConsole();
    if (!arguments.policy.empty()) {
      PutPolicy(server_.BmcFolder(), arguments.policy, arguments.once ? PolicyFile::OneTime : PolicyFile::Lasting);
    }
  }

  int Run();

 private:
  void HearPolicy();
  void OpenLog();
  void CheckJson() const;
  void ConnectConsole();
  void ConnectScreen();
  BootResult BootOnce();
  void Show(unsigned number, const BootResult& result);
  void WriteJson() const;
  void WriteVariables() const;
  // With the JSON on standard output the texts go to standard error.
  std::FILE* Texts() const { return arguments_.json == "-" ? stderr : stdout; }
  bool OnTerminal() const { return isatty(fileno(Texts())) == 1; }

  const BootArguments& arguments_;
  Server server_;
  Style style_;
  BootRequest request_;
  std::ofstream log_;
  std::unique_ptr<RawTerminal> terminal_;
  std::unique_ptr<TypedKeys> keys_;
  unsigned startsLogged_ = 0;
  std::vector<BootResult> results_;
  std::optional<PolicyListener> listener_;
  PolicyStory story_;        // of the start at hand
  bool screenUsed_ = false;  // a program placed the cursor, so that its text makes no sense line by line
  bool coloured_ = false;    // the terminal's colours are a program's
};

// The linked driver tells why it orders the options as it does.
void BootRun::HearPolicy() {
  if (!arguments_.image.empty()) {
    return;
  }
  listener_.emplace();
  TellStory(request_, *listener_, server_, story_);
}

void BootRun::OpenLog() {
  if (arguments_.log.empty()) {
    return;
  }
  log_.open(arguments_.log, std::ios::binary | std::ios::trunc);
  if (!log_) {
    throw StateError(fmt::format("{}: the log cannot be written", arguments_.log.string()));
  }
  request_.onLogLine = [this](const std::string& line) { log_ << line << (line.ends_with('\n') ? "" : "\n"); };
  request_.onTraffic = [this](const std::string& line) { log_ << line << '\n'; };
}

// An hour of boots is not to end with a report that nobody gets.
void BootRun::CheckJson() const {
  if (!arguments_.json.empty() && arguments_.json != "-" && !std::ofstream(arguments_.json, std::ios::app)) {
    throw StateError(fmt::format("{}: the JSON report cannot be written", arguments_.json));
  }
}

void BootRun::ConnectConsole() {
  std::string error;
  auto keys = ParseKeys(arguments_.keys, error);
  if (!keys) {
    throw StateError("--keys: " + error);
  }
  const bool typing = isatty(STDIN_FILENO) == 1;
  if (typing) {
    terminal_ = std::make_unique<RawTerminal>(STDIN_FILENO);
  }
  keys_ = std::make_unique<TypedKeys>(std::move(*keys), typing ? STDIN_FILENO : TypedKeys::kNone);
  request_.keys = keys_.get();
  if (!arguments_.quiet) {
    ConnectScreen();
    request_.onConsole = [this](std::string_view utf8) {
      if (screenUsed_ && !OnTerminal()) {
        return;  // the screen is shown at the end
      }
      const std::string shown = PrintableText(utf8, true);
      std::fwrite(shown.data(), 1, shown.size(), Texts());
      std::fflush(Texts());
    };
  }
}

// An attribute of the console as a terminal's escape sequence (ECMA-48, 8.3.117): the console counts its colours from
// blue to red, a terminal from red to blue; bit 3 is bright.
std::string ColourSequence(int attribute) {
  static constexpr int kOfTerminal[] = {0, 4, 2, 6, 1, 5, 3, 7};
  const int foreground = kOfTerminal[attribute & 7] + ((attribute & 8) != 0 ? 90 : 30);
  return fmt::format("\x1B[{};{}m", foreground, kOfTerminal[attribute >> 4 & 7] + 40);
}
constexpr const char* kOwnColours = "\x1B[0m";

// A loader's menu is drawn with the cursor. A terminal follows it; elsewhere the last screen is shown.
void BootRun::ConnectScreen() {
  if (!arguments_.execute) {
    return;
  }
  request_.onCursor = [this](int column, int row, bool cleared) {
    screenUsed_ = screenUsed_ || !cleared;
    if (OnTerminal()) {
      fmt::print(Texts(), "{}\x1B[{};{}H", cleared ? "\x1B[2J" : "", row + 1, column + 1);
    }
  };
  request_.onColours = [this](int attribute) {
    if (OnTerminal() && style_.colour) {
      coloured_ = true;
      fmt::print(Texts(), "{}", ColourSequence(attribute));
    }
  };
}

// Until something is started, nothing is, or the firmware resets once too often.
BootResult BootRun::BootOnce() {
  BootResult result;
  for (;;) {
    if (++startsLogged_ > 1 && log_.is_open()) {
      log_ << fmt::format("---- start {} ----\n", startsLogged_);
    }
    result.starts.push_back(server_.Boot(request_));
    if (listener_) {
      result.stories.push_back(std::exchange(story_, {}));
    }
    log_.flush();
    const BootOutcome& outcome = result.Last().outcome;
    if (outcome.end == BootEnd::PowerLost) {
      DropPowerFaults(request_.faults);
    }
    if (outcome.end != BootEnd::Reset || outcome.reset == EfiResetShutdown) {
      return result;
    }
    if (result.warmResets + result.coldResets >= arguments_.resets) {
      result.resetLimitReached = true;
      return result;
    }
    ++(outcome.reset == EfiResetWarm ? result.warmResets : result.coldResets);
  }
}

void BootRun::Show(unsigned number, const BootResult& result) {
  const std::string boot =
      arguments_.boots > 1 ? fmt::format(", boot {} of {}", number, arguments_.boots) : std::string();
  const std::string title = server_.Description().name + boot;
  const char* limit = result.resetLimitReached ? ", one reset too many" : "";
  if (std::exchange(coloured_, false)) {
    fmt::print(Texts(), "{}", kOwnColours);
  }
  if (screenUsed_ && !arguments_.quiet) {
    fmt::print(Texts(), "{}", OnTerminal() ? "\n" : ScreenText(result));
  }
  const std::string text = arguments_.quiet
                               ? fmt::format("{}: {}{}\n", PrintableText(title), OutcomeText(result.Last()), limit)
                               : SummaryText(title, result, style_);
  if (const auto bootType = BootTypeWithoutMode(server_.Variables()); bootType && !arguments_.quiet) {
    fmt::print(Texts(), "{}", style_.Bad(NothingCanBootText(*bootType)));
  }
  fmt::print(Texts(), "{}", text);
  std::fflush(Texts());
}

void BootRun::WriteJson() const {
  if (arguments_.json.empty()) {
    return;
  }
  const std::string text = JsonReport(server_.Description().name, server_.Notes(), results_);
  if (arguments_.json == "-") {
    fmt::print("{}", text);
    return;
  }
  std::ofstream file(arguments_.json, std::ios::binary | std::ios::trunc);
  file << text;
  if (!file.flush()) {
    throw StateError(fmt::format("{}: the JSON report cannot be written", arguments_.json));
  }
}

void BootRun::WriteVariables() const {
  if (arguments_.variables.empty()) {
    return;
  }
  EfivarsFolder folder(arguments_.variables);
  if (!folder.Mirror(server_.Variables())) {
    throw StateError(folder.Error());
  }
}

int BootRun::Run() {
  for (const std::string& note : arguments_.quiet ? std::vector<std::string>() : server_.Notes()) {
    fmt::print(Texts(), "Note: {}\n", PrintableText(note));
  }
  for (unsigned number = 1; number <= arguments_.boots; ++number) {
    results_.push_back(BootOnce());
    Show(number, results_.back());
    if (BrokeDown(results_.back().Last().outcome.end)) {
      break;
    }
  }
  WriteJson();
  WriteVariables();
  if (BrokeDown(results_.back().Last().outcome.end)) {
    return kExitBrokeDown;
  }
  return results_.back().Started() ? kExitStarted : kExitNothing;
}

}  // namespace

int RunBoot(const BootArguments& arguments) { return BootRun(arguments).Run(); }

}  // namespace sim
