#include "sim/server/boot_recorder.h"

#include <fmt/format.h>

#include <algorithm>
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
  report.device = option->Device() == nullptr ? "" : DevicePathToUtf8(*option->Device());
  report.legacy = option->Legacy();
  report.firmware = option->FirmwareMarked();
  report.group = option->GroupMarked();
  return report;
}

}  // namespace

BootRecorder::BootRecorder(Machine& machine, const BootRequest& request)
    : machine_(machine), request_(request), addresses_(machine) {
  machine_.Log().SetLineHandler([this](const std::string& line) { OnLine(line); });
  for (const std::string& words : request.faults) {
    if (std::ranges::find(faults_, words, &FaultReport::words) == faults_.end()) {
      faults_.push_back({.words = words, .step = {}});
    }
  }
}

void BootRecorder::Connect(MachineParts& parts, bool transport) {
  parts_ = &parts;
  bmcRequest_.Begin(parts.Runtime().Store(), transport);
  bootNextBefore_ = NumberIn(u"BootNext");
  NoteDamagedOptions();
  deleted_.Begin(parts.Runtime().Store());
  WatchAttempts();
  machine_.Counts().SetOffender([this] {
    const EFI_HANDLE owner = machine_.CurrentOwner();
    return parts_->Images().IsForeign(owner) ? parts_->Images().PathText(owner) : "";
  });
  if (request_.trace && request_.onTraffic) {
    machine_.SetTrace([this](const std::string& call) { request_.onTraffic("FW " + call); });
  }
  if (request_.tracePci && request_.onTraffic) {
    machine_.SetPciTrace([this](const std::string& access) { request_.onTraffic("FW " + access); });
  }
  if (request_.onConsole) {
    parts.Console().SetEcho(request_.onConsole);
  }
  parts.Console().SetCursorHandler(request_.onCursor);
  parts.Console().SetColourHandler(request_.onColours);
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

void BootRecorder::NoteDamagedOptions() {
  for (const Variable& variable : parts_->Runtime().Store().All()) {
    const bool option = variable.guid == gEfiGlobalVariableGuid && BootOptionNumber(variable.name);
    if (option && !ParseLoadOption(variable.data)) {
      damaged_.push_back({variable.name, variable.data.size()});
    }
  }
}

void BootRecorder::OnFault(std::string_view words, std::uint64_t nth) {
  const auto fault = std::ranges::find(faults_, words, &FaultReport::words);
  if (fault == faults_.end() || ++fault->met != 1) {
    return;
  }
  fault->first = nth;
  fault->step = steps_.empty() ? "" : steps_.back().name;
  fault->at = machine_.Time().Now();
}

void BootRecorder::CloseStep() {
  if (!steps_.empty()) {
    StepReport& step = steps_.back();
    step.duration = machine_.Time().Now() - step.start;
    for (std::size_t i = 0; i < step.waited.size(); ++i) {
      step.waited[i] = machine_.Time().Passed()[i] - passedBefore_[i];
    }
    step.serviceCalls = ServiceCalls() - callsBefore_;
  }
}

// The counts of services; those of other things have a point in their names.
std::uint64_t BootRecorder::ServiceCalls() const {
  std::uint64_t calls = 0;
  for (const auto& [name, count] : machine_.Counts().All()) {
    calls += name.find('.') == std::string::npos ? count : 0;
  }
  return calls;
}

void BootRecorder::OnLine(const std::string& line) {
  const auto step = StepName(line);
  if (step) {
    CloseStep();
    steps_.push_back({*step, machine_.Time().Now()});
    steps_.back().writesBefore = parts_->Runtime().Store().Journal().size();
    loaderOrder_.OnStep(*step, parts_->Runtime().Store(), machine_.Handles());
    if (request_.onStep) {
      request_.onStep(*step);
    }
    passedBefore_ = machine_.Time().Passed();
    callsBefore_ = ServiceCalls();
  }
  if (!step || (request_.debugMask & kStepLevel) != 0) {
    Show(line, step.has_value());
  }
  if (step && stepListener_) {
    stepListener_(*step);  // what it makes the driver do is part of the step
  }
}

void BootRecorder::Show(const std::string& line, bool isStep) {
  if (!steps_.empty()) {
    deleted_.OnLine(steps_.back().name, line);
  }
  const std::string shown = isStep ? addresses_.ReplaceRoutine(line) : addresses_.Replace(line);
  log_ += shown;
  log_ += '\n';
  if (request_.onLogLine) {
    request_.onLogLine(shown);
  }
}

std::optional<std::uint16_t> BootRecorder::NumberIn(std::u16string_view variable, bool volatileOnly) const {
  const Variable* found = parts_->Runtime().Store().Find(variable, gEfiGlobalVariableGuid);
  if (found == nullptr || found->data.size() != 2 || (volatileOnly && found->NonVolatile())) {
    return std::nullopt;
  }
  std::uint16_t number = 0;
  std::memcpy(&number, found->data.data(), sizeof(number));
  return number;
}

// What an image loads belongs to that image's option; else it belongs to the option that was read before the load.
std::optional<std::uint16_t> BootRecorder::OptionOfLoad() const {
  const auto& starts = parts_->Images().Starts();
  for (auto start = starts.rbegin(); start != starts.rend(); ++start) {
    const auto known = optionOfImage_.find(start->image);
    if (!start->finished && known != optionOfImage_.end() && known->second) {
      return known->second;
    }
  }
  return BootOptionNumber(parts_->Runtime().LastRead());
}

// BootCurrent tells, when it could be written; one that lies in NVRAM is not of this boot.
std::optional<std::uint16_t> BootRecorder::OptionOfLegacyBoot() const {
  const auto read = BootOptionNumber(parts_->Runtime().LastBootOption());
  return read ? read : NumberIn(u"BootCurrent", true);
}

void BootRecorder::WatchAttempts() {
  ImageService& images = parts_->Images();
  images.SetLoadHandler([this](EFI_HANDLE image) { optionOfImage_[image] = OptionOfLoad(); });
  images.SetAttemptHandlers(
      [this, &images] {
        const auto known = optionOfImage_.find(images.Starts().back().image);
        const auto option = known == optionOfImage_.end() ? std::nullopt : known->second;
        attempts_.push_back({AttemptOf::Start, images.Starts().size() - 1, option});
      },
      [this, &images] {
        attempts_.push_back({AttemptOf::Load, images.LoadFailures().size() - 1, OptionOfLoad()});
      });
  if (Csm* csm = machine_.Get<Csm>(); csm != nullptr) {
    csm->onAttempt = [this, csm] {
      attempts_.push_back({AttemptOf::Legacy, csm->Attempts().size() - 1, OptionOfLegacyBoot()});
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

// What was started, from the attempts themselves: the store may have refused every write about it.
void BootRecorder::ReportBoot(BootReport& report, const VariableStore& store, EFI_HANDLE driver) {
  ReportAttempts(report, driver);
  report.bootNext = NumberIn(u"BootNext");
  if (bootNextBefore_ && !report.bootNext) {
    report.bootNextTaken = bootNextBefore_;
  }
  report.bootCurrent = NumberIn(u"BootCurrent", true);
  if (report.Started()) {
    const auto ended = std::ranges::find_if(report.attempts, &AttemptReport::ended);
    report.bootCurrent = ended == report.attempts.end() ? std::nullopt : ended->option;
  }
  if (report.Started() || report.outcome.end == BootEnd::Returned) {
    report.devicesWithoutOption = DevicesWithoutOption(machine_, store);
    report.deleted = deleted_.Find(store);
  }
  loaderOrder_.AddDeleted(report.deleted);
}

// A write belongs to the last step that began before it.
void BootRecorder::NameStepsOfWrites(BootReport& report) {
  std::size_t begun = 0;
  for (std::size_t write = 0; write < report.writes.size(); ++write) {
    while (begun < report.steps.size() && report.steps[begun].writesBefore <= write) {
      ++begun;
    }
    report.writes[write].step = begun == 0 ? "" : report.steps[begun - 1].name;
  }
}

void BootRecorder::Finish(BootReport& report, const VariableStore& store, EFI_HANDLE driver) {
  CloseStep();
  ReportBoot(report, store, driver);
  report.request = bmcRequest_.Report(store);
  report.movedLoaders = loaderOrder_.Moved(store);
  report.faults = faults_;
  for (DamagedOption& option : damaged_) {
    option.deleted = store.Find(option.name, gEfiGlobalVariableGuid) == nullptr;
  }
  report.damaged = damaged_;
  report.steps = std::move(steps_);
  report.log = std::move(log_);
  report.console = parts_->Console().Text();
  report.screen = parts_->Console().Screen().Lines();
  report.options = ReportOptions(store, report.bootOrder);
  report.writes = store.Journal();
  NameStepsOfWrites(report);
  report.counts = {machine_.Counts().All().begin(), machine_.Counts().All().end()};
  report.complaints = machine_.Counts().Complaints();
  report.foreignComplaints = machine_.Counts().ForeignComplaints();
  report.poolPeak = machine_.Pool().Peak();
  report.poolInUse = machine_.Pool().InUseBy(driver);
  machine_.Counts().SetOffender(nullptr);  // the images go before the machine
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
