#include "sim/server/boot_recorder.h"

#include <fmt/format.h>

#include <cstring>
#include <set>

#include "sim/server/load_option_view.h"

namespace sim {
namespace {

// "BDS.NAME(ADDRESS)": the line before a step.
std::optional<std::string> StepName(const std::string& line) {
  const std::size_t open = line.find('(');
  if (!line.starts_with("BDS.") || open == std::string::npos || line.back() != ')') {
    return std::nullopt;
  }
  return line.substr(4, open - 4);
}

std::u16string BootVariable(std::uint16_t number) {
  const std::string name = fmt::format("Boot{:04X}", number);
  return {name.begin(), name.end()};
}

OptionReport ReportOption(const VariableStore& store, std::uint16_t number) {
  OptionReport report;
  report.number = number;
  const Variable* variable = store.Find(BootVariable(number), gEfiGlobalVariableGuid);
  const auto option = variable == nullptr ? std::nullopt : ParseLoadOption(variable->data);
  report.readable = option.has_value();
  if (!option) {
    return report;
  }
  report.attributes = option->attributes;
  report.name = option->name;
  report.path = option->paths.empty() ? "" : DevicePathToUtf8(option->paths.front());
  report.legacy = option->Legacy();
  report.firmware = option->FirmwareMarked();
  report.group = option->GroupMarked();
  return report;
}

}  // namespace

BootRecorder::BootRecorder(Machine& machine, const BootRequest& request)
    : machine_(machine), request_(request), addresses_(machine) {
  machine_.Log().SetLineHandler([this](const std::string& line) { OnLine(line); });
}

void BootRecorder::Connect(MachineParts& parts) {
  parts_ = &parts;
  WatchAttempts();
  if (request_.trace && request_.onTraffic) {
    machine_.SetTrace([this](const std::string& call) { request_.onTraffic("FW " + call); });
  }
  if (request_.onConsole) {
    parts.Console().SetEcho(request_.onConsole);
  }
  if (request_.keys != nullptr) {
    parts.Console().SetKeySource([keys = request_.keys] { return keys->Next(); });
    machine_.SetIdle([keys = request_.keys] { return keys->Wait(); });
  }
}

void BootRecorder::OnTraffic(const std::string& line) {
  if (request_.onTraffic) {
    const Ticks now = machine_.Time().Now();
    request_.onTraffic(fmt::format("BMC@{}.{:06} {}", now / kSecond, now % kSecond / kMicrosecond, line));
  }
}

void BootRecorder::CloseStep() {
  if (!steps_.empty()) {
    StepReport& step = steps_.back();
    step.duration = machine_.Time().Now() - step.start;
    for (std::size_t i = 0; i < step.waited.size(); ++i) {
      step.waited[i] = machine_.Time().Passed()[i] - passedBefore_[i];
    }
  }
}

void BootRecorder::OnLine(const std::string& line) {
  const auto step = StepName(line);
  if (step) {
    CloseStep();
    steps_.push_back({*step, machine_.Time().Now()});
    passedBefore_ = machine_.Time().Passed();
    if ((request_.debugMask & kStepLevel) == 0) {
      return;
    }
  }
  const std::string shown = step ? addresses_.ReplaceRoutine(line) : addresses_.Replace(line);
  log_ += shown;
  log_ += '\n';
  if (request_.onLogLine) {
    request_.onLogLine(shown);
  }
}

std::optional<std::uint16_t> BootRecorder::BootCurrent() const {
  const Variable* current = parts_->Runtime().Store().Find(u"BootCurrent", gEfiGlobalVariableGuid);
  if (current == nullptr || current->data.size() != 2) {
    return std::nullopt;
  }
  std::uint16_t number = 0;
  std::memcpy(&number, current->data.data(), sizeof(number));
  return number;
}

// The driver writes BootCurrent once an image is loaded, so a load that fails belongs to the option read before it.
void BootRecorder::WatchAttempts() {
  ImageService& images = parts_->Images();
  images.SetAttemptHandlers(
      [this, &images] {
        attempts_.push_back({AttemptOf::Start, images.Starts().size() - 1, BootCurrent()});
      },
      [this, &images] {
        const auto number = BootOptionNumber(parts_->Runtime().LastRead());
        attempts_.push_back({AttemptOf::Load, images.LoadFailures().size() - 1, number});
      });
  if (Csm* csm = machine_.Get<Csm>(); csm != nullptr) {
    csm->onAttempt = [this, csm] {
      attempts_.push_back({AttemptOf::Legacy, csm->Attempts().size() - 1, BootCurrent()});
    };
  }
}

AttemptReport BootRecorder::Report(const AttemptPlace& place) const {
  switch (place.of) {
    case AttemptOf::Load: {
      const ImageService::LoadFailure& failure = parts_->Images().LoadFailures()[place.index];
      return {place.option, failure.path, false, false, failure.status, failure.reason, false};
    }
    case AttemptOf::Start: {
      const ImageService::Start& start = parts_->Images().Starts()[place.index];
      return {place.option, start.path, false, true, start.status, start.reason, !start.finished};
    }
    case AttemptOf::Legacy:
      break;
  }
  const Csm::Attempt& attempt = machine_.Get<Csm>()->Attempts()[place.index];
  return {place.option, attempt.text, true, true, attempt.status, "", !EFI_ERROR(attempt.status)};
}

void BootRecorder::ReportAttempts(BootReport& report, EFI_HANDLE driver) const {
  for (const AttemptPlace& place : attempts_) {
    const bool own = place.of == AttemptOf::Start && parts_->Images().Starts()[place.index].image == driver;
    if (!own) {
      report.attempts.push_back(Report(place));
    }
  }
}

void BootRecorder::Finish(BootReport& report, const VariableStore& store, EFI_HANDLE driver) {
  CloseStep();
  ReportAttempts(report, driver);
  report.steps = std::move(steps_);
  report.log = std::move(log_);
  report.console = parts_->Console().Text();
  report.options = ReportOptions(store, report.bootOrder);
  report.writes = store.Journal();
  report.bootCurrent = BootCurrent();
  report.counts = {machine_.Counts().All().begin(), machine_.Counts().All().end()};
  report.complaints = machine_.Counts().Complaints();
  report.poolPeak = machine_.Pool().Peak();
  report.poolInUse = machine_.Pool().InUseBy(driver);
}

std::vector<OptionReport> ReportOptions(const VariableStore& store, std::vector<std::uint16_t>& order) {
  std::vector<OptionReport> options;
  const Variable* variable = store.Find(u"BootOrder", gEfiGlobalVariableGuid);
  if (variable != nullptr) {
    order.resize(variable->data.size() / 2);
    if (!order.empty()) {
      std::memcpy(order.data(), variable->data.data(), order.size() * 2);
    }
  }
  std::set<std::uint16_t> listed;
  for (const std::uint16_t number : order) {
    options.push_back(ReportOption(store, number));
    options.back().inOrder = true;
    listed.insert(number);
  }
  std::set<std::uint16_t> others;
  for (const Variable& other : store.All()) {
    const auto number = other.guid == gEfiGlobalVariableGuid ? BootOptionNumber(other.name) : std::nullopt;
    if (number && !listed.contains(*number)) {
      others.insert(*number);
    }
  }
  for (const std::uint16_t number : others) {
    options.push_back(ReportOption(store, number));
  }
  return options;
}

}  // namespace sim
