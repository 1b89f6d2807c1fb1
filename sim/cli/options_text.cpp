#include "sim/cli/options_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "sim/cli/findings_text.h"
#include "sim/cli/phases.h"
#include "sim/cli/printable_text.h"

namespace sim {
namespace {

constexpr std::size_t kNamesPerKind = 12;
constexpr std::size_t kComplaintsShown = 10;
constexpr std::size_t kLeaksShown = 5;
constexpr std::size_t kNameWidth = 32;
// In the order of VariableWrite::Kind.
constexpr const char* kKindWords[] = {"created", "changed", "appended to", "deleted", "unchanged", "refused"};

std::string StateText(const OptionReport& option) {
  std::string state = OptionState(option);
  const std::pair<bool, const char*> flags[] = {
      {option.legacy, "legacy"},
      {option.firmware, "firmware"},
      {option.group, "group"},
      {!option.inOrder, "not in order"},
  };
  for (const auto& [set, word] : flags) {
    state += set ? fmt::format(", {}", word) : "";
  }
  return state;
}

std::string OptionLine(const OptionReport& option, bool booted, const Style& style) {
  // Characters, not bytes, fill the column.
  const std::string name = PrintableText(option.name);
  const auto width = static_cast<std::size_t>(std::ranges::count_if(name, [](char c) { return (c & 0xC0) != 0x80; }));
  const std::string padding(width < kNameWidth ? kNameWidth - width : 0, ' ');
  const std::string line = fmt::format("  {} Boot{:04X}  {}{}  {:<28}  {}", booted ? '*' : ' ', option.number, name,
                                       padding, StateText(option), PrintableText(option.path));
  const std::string shown = line.substr(0, line.find_last_not_of(' ') + 1);
  if (booted) {
    return style.Good(shown) + "\n";
  }
  return (OptionState(option) == "active" ? shown : style.Faint(shown)) + "\n";
}

std::string PassedOverText(const BootReport& report) {
  std::string text;
  for (const PassedOver& each : OptionsPassedOver(report)) {
    text += fmt::format("    Boot{:04X}: {}\n", each.number, each.reason);
  }
  return text.empty() ? "" : "  Passed over\n" + text;
}

std::string AttemptsText(const BootReport& report) {
  std::string text;
  unsigned number = 0;
  for (const AttemptReport& attempt : report.attempts) {
    const std::string option = attempt.option ? fmt::format("Boot{:04X}, ", *attempt.option) : "";
    text += fmt::format("    {}. {}{}: {}\n", ++number, option, PrintableText(attempt.what), AttemptText(attempt));
  }
  return text.empty() ? "" : "  Attempts\n" + text;
}

std::string TimeText(const BootReport& report) {
  std::string text = fmt::format("  Virtual time {}\n", SecondsText(report.outcome.time));
  const auto times = PhaseTimes(report);
  for (std::size_t phase = 0; phase < times.size(); ++phase) {
    if (times[phase] != 0) {
      text += fmt::format("    {:<24}{:>12}\n", PhaseName(static_cast<Phase>(phase)), SecondsText(times[phase]));
    }
  }
  return text;
}

std::string KindLine(VariableWrite::Kind kind, const std::vector<std::string>& names) {
  const char* word = kKindWords[static_cast<std::size_t>(kind)];
  if (kind == VariableWrite::Kind::Unchanged) {
    return fmt::format("    {} {}\n", word, names.size());
  }
  const std::size_t shown = std::min(names.size(), kNamesPerKind);
  std::string list = fmt::format("{}", fmt::join(names.begin(), names.begin() + shown, ", "));
  if (shown < names.size()) {
    list += fmt::format(" and {} more", names.size() - shown);
  }
  return fmt::format("    {} {}: {}\n", word, names.size(), list);
}

// Deleting needs no attributes, so that a deletion counts whatever it was called with. To delete what is not there is
// no write that anybody misses.
bool ConcernsNvram(const VariableWrite& write) {
  if (write.kind == VariableWrite::Kind::Refused && write.size == 0 && write.status == EFI_NOT_FOUND) {
    return false;
  }
  return (write.attributes & EFI_VARIABLE_NON_VOLATILE) != 0 || write.kind == VariableWrite::Kind::Delete;
}

std::string WritesText(const BootReport& report) {
  std::map<VariableWrite::Kind, std::vector<std::string>> byKind;
  std::size_t changes = 0;
  for (const VariableWrite& write : report.writes) {
    if (!ConcernsNvram(write)) {
      continue;
    }
    const bool changed = write.kind != VariableWrite::Kind::Unchanged && write.kind != VariableWrite::Kind::Refused;
    changes += changed ? 1 : 0;
    std::string name = PrintableText(write.name);
    if (write.kind == VariableWrite::Kind::Refused) {
      name += fmt::format(" ({})", StatusName(write.status));
    }
    byKind[write.kind].push_back(std::move(name));
  }
  std::string text = fmt::format("  NVRAM: {} written\n", changes);
  for (const auto& [kind, names] : byKind) {
    text += KindLine(kind, names);
  }
  return text;
}

std::string ComplaintsText(const char* about, const std::vector<std::string>& complaints, const Style& style) {
  if (complaints.empty()) {
    return "";
  }
  std::string text = "  " + style.Bad(fmt::format("Complaints about {}: {}", about, complaints.size())) + "\n";
  for (std::size_t i = 0; i < std::min(complaints.size(), kComplaintsShown); ++i) {
    text += fmt::format("    {}\n", PrintableText(complaints[i]));
  }
  return text;
}

// What the operating system was given.
std::string SystemText(const BootReport& report) {
  if (report.outcome.end != BootEnd::ExitedBootServices) {
    return "";
  }
  const SystemTakenOver& system = report.outcome.system;
  std::string text =
      fmt::format("    command line: {}\n", system.commandLine.empty() ? "none" : PrintableText(system.commandLine));
  if (system.initrd) {
    text += fmt::format("    initrd: {} bytes\n", *system.initrd);
  }
  return text + fmt::format("    memory map: {} entries, {} bytes\n", system.memoryMapEntries, system.memoryMapSize);
}

std::string LeftOverText(const BootReport& report, const Style& style) {
  std::string text = ComplaintsText("the driver", report.complaints, style) +
                     ComplaintsText("programs from the server's media", report.foreignComplaints, style);
  const auto& leaks = report.outcome.leaks;
  if (!leaks.empty()) {
    text += "  " + style.Bad(fmt::format("Pool blocks that nobody holds: {}", leaks.size())) + "\n";
    for (std::size_t i = 0; i < std::min(leaks.size(), kLeaksShown); ++i) {
      text += fmt::format("    {} bytes, allocation {}\n", leaks[i].block.size, leaks[i].block.serial);
    }
  }
  return text;
}

std::string ResetsText(const BootResult& result, const Style& style) {
  std::string text;
  for (std::size_t i = 0; i + 1 < result.starts.size(); ++i) {
    const BootReport& report = result.starts[i];
    text += fmt::format("  Start {} ended after {} with a {}\n", i + 1, SecondsText(report.outcome.time),
                        OutcomeText(report));
    text += RequestText(report) + WritesText(report) + LeftOverText(report, style);
  }
  if (result.resetLimitReached) {
    text += "  " + style.Bad("Too many resets: the last one was not carried out") + "\n";
  }
  return text;
}

}  // namespace

std::string SecondsText(Ticks ticks) {
  const Ticks milliseconds = (ticks + kMillisecond / 2) / kMillisecond;
  return fmt::format("{}.{:03} s", milliseconds / 1000, milliseconds % 1000);
}

std::string OptionsText(const BootReport& report, const Style& style) {
  if (report.options.empty()) {
    return "  No boot options\n";
  }
  const OptionReport* booted = report.Started() ? BootedOption(report) : nullptr;
  std::string text = "  Boot options\n";
  for (const OptionReport& option : report.options) {
    text += OptionLine(option, &option == booted, style);
  }
  return text;
}

std::string SummaryText(const std::string& title, const BootResult& result, const Style& style) {
  const BootReport& report = result.Last();
  const std::string outcome = OutcomeText(report);
  std::string text = style.Strong(PrintableText(title)) + "\n" + ResetsText(result, style);
  text += OptionsText(report, style) + DevicesWithoutOptionText(report) + DamagedOptionsText(report) +
          DeletedOptionsText(report) + MovedLoadersText(report);
  text += RequestText(report) + BootNextText(report) + AttemptsText(report) + PassedOverText(report);
  text += "  Outcome: " + (result.Started() ? style.Good(outcome) : style.Bad(outcome)) + "\n";
  text += SystemText(report);
  text +=
      TimeText(report) + SilenceText(report) + FaultsText(result) + WritesText(report) + LeftOverText(report, style);
  if (result.warmResets + result.coldResets != 0) {
    text += fmt::format("  Resets: {} warm, {} cold; virtual time of all {} starts {}\n", result.warmResets,
                        result.coldResets, result.starts.size(), SecondsText(result.Time()));
  }
  return text;
}

}  // namespace sim
