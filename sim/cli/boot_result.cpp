#include "sim/cli/boot_result.h"

#include <fmt/format.h>

#include <algorithm>

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

bool ContainsIgnoringCase(std::string_view text, std::string_view part) {
  const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

// The attempt that tells most about that option: one that loaded, else the first. The image's full path contains the
// option's own, which may be a short form.
const AttemptReport* AttemptOn(const OptionReport& option, const BootReport& report) {
  const AttemptReport* first = nullptr;
  for (const AttemptReport& attempt : report.attempts) {
    if (attempt.legacy || option.legacy || option.path.empty() || !ContainsIgnoringCase(attempt.what, option.path)) {
      continue;
    }
    if (attempt.loaded) {
      return &attempt;
    }
    first = first == nullptr ? &attempt : first;
  }
  return first;
}

std::string ReasonFor(const OptionReport& option, const AttemptReport* attempt) {
  if (!option.readable) {
    return "no such variable, or it is malformed";
  }
  if (attempt != nullptr) {
    return AttemptText(*attempt);
  }
  return (option.attributes & LOAD_OPTION_ACTIVE) == 0 ? "not active" : "no attempt on record";
}

bool IsTriedLegacy(const OptionReport& option) {
  return option.legacy && option.readable && (option.attributes & LOAD_OPTION_ACTIVE) != 0;
}

// Legacy options have paths that say little, so that failed legacy boots are told apart by their order alone: they are
// as many as the options only when each one was tried once.
std::vector<const AttemptReport*> LegacyAttempts(const BootReport& report, std::size_t options) {
  std::vector<const AttemptReport*> failed;
  for (const AttemptReport& attempt : report.attempts) {
    if (attempt.legacy && !attempt.ended) {
      failed.push_back(&attempt);
    }
  }
  return failed.size() == options ? failed : std::vector<const AttemptReport*>(options);
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
  const auto legacy = std::count_if(report.options.begin(), end, IsTriedLegacy);
  const auto legacyAttempts = LegacyAttempts(report, static_cast<std::size_t>(legacy));
  auto nextLegacy = legacyAttempts.begin();
  for (auto option = report.options.begin(); option != end; ++option) {
    const AttemptReport* attempt = IsTriedLegacy(*option) ? *nextLegacy++ : AttemptOn(*option, report);
    passed.push_back({option->number, ReasonFor(*option, attempt)});
  }
  return passed;
}

std::string AttemptText(const AttemptReport& attempt) {
  if (attempt.ended) {
    return attempt.legacy ? "legacy boot, which ended the boot" : "started, which ended the boot";
  }
  const std::string reason = attempt.reason.empty() ? "" : fmt::format(" ({})", PrintableText(attempt.reason));
  const char* what = attempt.legacy ? "legacy boot" : attempt.loaded ? "started and returned" : "not loaded";
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
      return fmt::format("{}the image that ran took the machine over", option);
    case BootEnd::Reset:
      return fmt::format("{} reset, {}", outcome.reset == EfiResetWarm ? "warm" : "cold", StatusName(outcome.status));
    case BootEnd::Returned:
      return fmt::format("nothing was started; the driver returned {}", StatusName(outcome.status));
    default:
      return fmt::format("{}{}", BootEndName(outcome.end), text);
  }
}

}  // namespace sim
