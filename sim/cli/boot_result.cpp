#include "sim/cli/boot_result.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "sim/cli/printable_text.h"
#include "sim/firmware/services/device_path_text.h"

namespace sim {
namespace {

// Of what was started; an image from the firmware's own load file has no path but its option's.
std::string StartedText(const BootReport& report) {
  const auto text = DevicePathText(report.outcome.path.Bytes());
  if (text && !text->empty()) {
    return PrintableText(*text);
  }
  const auto ended = std::ranges::find_if(report.attempts, &AttemptReport::ended);
  return ended == report.attempts.end() ? "what has no path" : PrintableText(ended->what);
}

// The attempt that tells most about that option: one that loaded, else the first.
const AttemptReport* AttemptOn(const OptionReport& option, const BootReport& report) {
  const AttemptReport* first = nullptr;
  for (const AttemptReport& attempt : report.attempts) {
    if (attempt.option != option.number) {
      continue;
    }
    if (attempt.loaded) {
      return &attempt;
    }
    first = first == nullptr ? &attempt : first;
  }
  return first;
}

std::string ReasonFor(const OptionReport& option, const BootReport& report) {
  const AttemptReport* attempt = AttemptOn(option, report);
  if (!option.readable) {
    return "no such variable, or it is malformed";
  }
  if (attempt != nullptr) {
    return AttemptText(*attempt);
  }
  if (report.bootNextTaken && report.bootNextTaken == report.bootCurrent) {
    return fmt::format("not its turn: BootNext named Boot{:04X}", *report.bootNextTaken);
  }
  return (option.attributes & LOAD_OPTION_ACTIVE) == 0 ? "not active" : "no attempt on record";
}

}  // namespace

const OptionReport* BootedOption(const BootReport& report) {
  if (!report.bootCurrent) {
    return nullptr;
  }
  const auto found = std::ranges::find(report.options, *report.bootCurrent, &OptionReport::number);
  return found == report.options.end() ? nullptr : &*found;
}

std::string OptionState(const OptionReport& option) {
  if (!option.readable) {
    return "missing";
  }
  if ((option.attributes & LOAD_OPTION_HIDDEN) != 0) {
    return "hidden";
  }
  return (option.attributes & LOAD_OPTION_ACTIVE) != 0 ? "active" : "inactive";
}

std::vector<PassedOver> OptionsPassedOver(const BootReport& report) {
  std::vector<PassedOver> passed;
  if (!report.Started() && report.outcome.end != BootEnd::Returned) {
    return passed;  // the boot ended before the order was walked to its end
  }
  const OptionReport* booted = report.Started() ? BootedOption(report) : nullptr;
  if (booted != nullptr && !booted->inOrder) {
    return passed;  // BootNext or the BMC chose it: the order was not walked
  }
  const auto stops = [booted](const OptionReport& option) { return &option == booted || !option.inOrder; };
  const auto end = std::ranges::find_if(report.options, stops);
  for (const OptionReport& option : std::span(report.options.begin(), end)) {
    passed.push_back({option.number, ReasonFor(option, report)});
  }
  return passed;
}

std::string AttemptText(const AttemptReport& attempt) {
  if (attempt.ended) {
    return attempt.legacy ? "legacy boot, which ended the boot" : "started, which ended the boot";
  }
  const std::string reason = attempt.reason.empty() ? "" : fmt::format(" ({})", PrintableText(attempt.reason));
  const char* started = attempt.reason.empty() ? "started and returned" : "not run";
  const char* what = attempt.legacy ? "legacy boot" : attempt.loaded ? started : "not loaded";
  return fmt::format("{}: {}{}", what, StatusName(attempt.status), reason);
}

std::string OutcomeText(const BootReport& report) {
  const BootOutcome& outcome = report.outcome;
  const OptionReport* booted = BootedOption(report);
  std::string option = booted == nullptr && report.bootCurrent ? fmt::format("Boot{:04X}: ", *report.bootCurrent) : "";
  if (booted != nullptr) {
    option = fmt::format("Boot{:04X} {}: ", booted->number, PrintableText(booted->name));
  }
  const std::string text = outcome.text.empty() ? "" : fmt::format(" ({})", PrintableText(outcome.text));
  switch (outcome.end) {
    case BootEnd::HandedOver:
      return fmt::format("{}handed over to {}", option, StartedText(report));
    case BootEnd::LegacyBoot:
      return fmt::format("{}legacy boot of {}, BBS entry {}", option, StartedText(report), outcome.bbsIndex);
    case BootEnd::ExitedBootServices:
      return fmt::format("{}the operating system took over", option);
    case BootEnd::Reset:
      if (outcome.reset == EfiResetShutdown) {
        return fmt::format("{}powered off, {}", option, StatusName(outcome.status));
      }
      return fmt::format("{} reset, {}", outcome.reset == EfiResetWarm ? "warm" : "cold", StatusName(outcome.status));
    case BootEnd::Returned:
      return fmt::format("nothing was started; the driver returned {}", StatusName(outcome.status));
    default:
      return fmt::format("{}{}", BootEndName(outcome.end), text);
  }
}

}  // namespace sim
