#include "sim/cli/boot_result.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
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

bool IsReadableLegacy(const OptionReport& option) { return option.legacy && option.readable; }

bool IsActiveLegacy(const OptionReport& option) {
  return IsReadableLegacy(option) && (option.attributes & LOAD_OPTION_ACTIVE) != 0;
}

// Which attempt each option had. Legacy options have paths that say little, so that failed legacy boots are told apart
// by their order alone: when there are as many of them as legacy options, or as active ones (the driver tries all of
// the order, a front end only the active ones).
class AttemptFinder {
 public:
  AttemptFinder(std::span<const OptionReport> options, const BootReport& report) : report_(report) {
    for (const AttemptReport& attempt : report.attempts) {
      if (attempt.legacy && !attempt.ended) {
        legacy_.push_back(&attempt);
      }
    }
    for (const auto tried : {IsReadableLegacy, IsActiveLegacy}) {
      if (static_cast<std::size_t>(std::ranges::count_if(options, tried)) == legacy_.size()) {
        tried_ = tried;
        return;
      }
    }
  }

  // Called for the options in their order.
  const AttemptReport* Next(const OptionReport& option) {
    if (!option.legacy) {
      return AttemptOn(option, report_);
    }
    return tried_ != nullptr && tried_(option) ? legacy_[next_++] : nullptr;
  }

 private:
  const BootReport& report_;
  std::vector<const AttemptReport*> legacy_;
  bool (*tried_)(const OptionReport&) = nullptr;
  std::size_t next_ = 0;
};

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
  const std::span before(report.options.begin(), end);
  AttemptFinder attempts(before, report);
  for (const OptionReport& option : before) {
    passed.push_back({option.number, ReasonFor(option, attempts.Next(option))});
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
