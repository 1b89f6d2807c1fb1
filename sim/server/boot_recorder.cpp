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

BootRecorder::BootRecorder(Machine& machine, const BootRequest& request) : machine_(machine), request_(request) {
  machine_.Log().SetLineHandler([this](const std::string& line) { OnLine(line); });
}

void BootRecorder::Connect(MachineParts& parts) {
  parts_ = &parts;
  if (request_.onConsole) {
    parts.Console().SetEcho(request_.onConsole);
  }
  if (request_.keys != nullptr) {
    parts.Console().SetKeySource([keys = request_.keys] { return keys->Next(); });
    machine_.SetIdle([keys = request_.keys] { return keys->Wait(); });
  }
}

void BootRecorder::CloseStep() {
  if (!steps_.empty()) {
    steps_.back().duration = machine_.Time().Now() - steps_.back().start;
  }
}

void BootRecorder::OnLine(const std::string& line) {
  if (const auto step = StepName(line)) {
    CloseStep();
    steps_.push_back({*step, machine_.Time().Now(), 0});
    if ((request_.debugMask & kStepLevel) == 0) {
      return;
    }
  }
  log_ += line;
  log_ += '\n';
  if (request_.onLogLine) {
    request_.onLogLine(line);
  }
}

void BootRecorder::ReportAttempts(BootReport& report, EFI_HANDLE driver) const {
  for (const ImageService::LoadFailure& failure : parts_->Images().LoadFailures()) {
    report.attempts.push_back({failure.path, false, false, failure.status, failure.reason, false});
  }
  for (const ImageService::Start& start : parts_->Images().Starts()) {
    if (start.image != driver) {
      report.attempts.push_back({start.path, false, true, start.status, "", !start.finished});
    }
  }
  if (const Csm* csm = machine_.Get<Csm>(); csm != nullptr) {
    for (const Csm::Attempt& attempt : csm->Attempts()) {
      report.attempts.push_back({attempt.text, true, true, attempt.status, "", !EFI_ERROR(attempt.status)});
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
  const Variable* current = store.Find(u"BootCurrent", gEfiGlobalVariableGuid);
  if (current != nullptr && current->data.size() == 2) {
    std::uint16_t number = 0;
    std::memcpy(&number, current->data.data(), sizeof(number));
    report.bootCurrent = number;
  }
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
