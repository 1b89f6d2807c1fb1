#include "sim/cli/findings_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "sim/bmc/boot_flag_words.h"
#include "sim/cli/options_text.h"
#include "sim/cli/printable_text.h"

namespace sim {
namespace {

constexpr std::size_t kDevicesShown = 12;

std::uint64_t CountOf(const BootReport& report, const char* name) {
  const auto found = report.counts.find(name);
  return found == report.counts.end() ? 0 : found->second;
}

const OptionReport* OptionOf(const BootReport& report, std::uint16_t number) {
  const auto found = std::ranges::find(report.options, number, &OptionReport::number);
  return found == report.options.end() ? nullptr : &*found;
}

std::string AskedText(const BootRequestReport& request) {
  std::string text = BootDeviceWord(request.flags) + (request.Efi() ? " efi" : "");
  if (const auto instance = BootInstance(request.flags)) {
    text += fmt::format(" instance={}", *instance);
  }
  text += request.Persistent() ? ", persistent" : ", once";
  return text + (request.source == BootRequestReport::Source::Bmc ? ", asked by the BMC" : ", kept in NVRAM since");
}

std::string FaultLine(const std::string& words, const BootResult& result) {
  std::uint64_t met = 0;
  std::string where;
  for (std::size_t start = 0; start < result.starts.size(); ++start) {
    const auto& faults = result.starts[start].faults;
    const auto fault = std::ranges::find(faults, words, &FaultReport::words);
    if (fault == faults.end() || fault->met == 0) {
      continue;
    }
    if (met == 0) {
      const std::string step = fault->step.empty() ? "before the first step" : "in " + fault->step;
      where =
          fmt::format("first by number {} {}, start {} at {}", fault->first, step, start + 1, SecondsText(fault->at));
    }
    met += fault->met;
  }
  const std::string times = met == 0 ? "not met" : fmt::format("met {} time{}, {}", met, met == 1 ? "" : "s", where);
  return fmt::format("    \"{}\": {}\n", PrintableText(words), times);
}

}  // namespace

std::string RequestResult(const BootReport& report) {
  const BootRequestReport& request = report.request;
  if (!request.option) {
    return request.result;
  }
  if (report.outcome.end == BootEnd::Reset) {
    const bool tried = std::ranges::any_of(report.attempts, [&request](const AttemptReport& attempt) {
      return attempt.loaded && attempt.option == request.option;
    });
    return request.result +
           (tried ? " and was started; then came a reset" : ", but a reset came before it was started");
  }
  if (report.Started() && report.bootCurrent == request.option) {
    return request.result + " and was started";
  }
  for (const PassedOver& each : OptionsPassedOver(report)) {
    if (each.number == *request.option) {
      return fmt::format("{} and did not start: {}", request.result, each.reason);
    }
  }
  return request.result + " and was not started";
}

std::string RequestText(const BootReport& report) {
  const BootRequestReport& request = report.request;
  if (request.Asked()) {
    return fmt::format("  BMC request: {}: {}\n", AskedText(request), RequestResult(report));
  }
  const bool quiet = request.result.empty() || request.result == kNothingAsked || request.result == kNoTransport;
  return quiet ? "" : fmt::format("  BMC request: none: {}\n", request.result);
}

std::string BootNextText(const BootReport& report) {
  if (!report.bootNext) {
    return {};
  }
  const OptionReport* option = OptionOf(report, *report.bootNext);
  const std::string name = option == nullptr ? "" : " " + PrintableText(option->name);
  return fmt::format(
      "  BootNext: Boot{:04X}{} is still to come: the setup front end follows it when it boots, the boot "
      "driver leaves it alone\n",
      *report.bootNext, name);
}

std::string DevicesWithoutOptionText(const BootReport& report) {
  const auto& devices = report.devicesWithoutOption;
  if (devices.empty()) {
    return {};
  }
  std::string text = "  Devices without an option\n";
  for (std::size_t i = 0; i < std::min(devices.size(), kDevicesShown); ++i) {
    text += fmt::format("    {}: {}\n", PrintableText(devices[i].path), devices[i].reason);
  }
  return devices.size() <= kDevicesShown ? text
                                         : text + fmt::format("    and {} more\n", devices.size() - kDevicesShown);
}

std::string DamagedOptionsText(const BootReport& report) {
  std::string text;
  for (const DamagedOption& option : report.damaged) {
    text += fmt::format("  Damaged: {} was {} bytes that are no load option; {}\n", PrintableText(option.name),
                        option.size, option.deleted ? "the driver deleted it" : "it was left as it is");
  }
  return text;
}

std::string DeletedOptionsText(const BootReport& report) {
  std::string text;
  for (const DeletedOption& option : report.deleted) {
    text += fmt::format("    Boot{:04X} {}: {}\n", option.number, PrintableText(option.name), option.reason);
  }
  return text.empty() ? text : "  Deleted options\n" + text;
}

std::string MovedLoadersText(const BootReport& report) {
  std::string text;
  for (const LoaderMove& move : report.movedLoaders) {
    text += fmt::format("  Moved: Boot{:04X} {} from place {} of the order to place {}, now as Boot{:04X}\n",
                        move.number, PrintableText(move.name), move.from, move.to, move.now);
  }
  return text;
}

std::uint64_t BmcSilences(const BootReport& report) {
  return CountOf(report, "bmc.timeouts") + CountOf(report, "ipmi.timeouts");
}

std::string SilenceText(const BootReport& report) {
  if (BmcSilences(report) == 0) {
    return {};
  }
  return fmt::format("  The BMC did not answer {} file exchange(s) and {} IPMI request(s)\n",
                     CountOf(report, "bmc.timeouts"), CountOf(report, "ipmi.timeouts"));
}

std::string ScreenText(const BootResult& result) {
  const auto shows = [](const BootReport& start) { return !start.screen.empty(); };
  const auto start = std::find_if(result.starts.rbegin(), result.starts.rend(), shows);
  if (start == result.starts.rend()) {
    return {};
  }
  std::string text = "\nThe screen at the end\n";
  for (const std::string& line : start->screen) {
    text += fmt::format("  | {}\n", PrintableText(line));
  }
  return text;
}

std::string FaultsText(const BootResult& result) {
  std::vector<std::string> words;
  for (const BootReport& start : result.starts) {
    for (const FaultReport& fault : start.faults) {
      if (std::ranges::find(words, fault.words) == words.end()) {
        words.push_back(fault.words);
      }
    }
  }
  std::string text = words.empty() ? "" : "  Faults\n";
  for (const std::string& each : words) {
    text += FaultLine(each, result);
  }
  return text;
}

}  // namespace sim
