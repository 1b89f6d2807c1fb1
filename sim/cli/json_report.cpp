#include "sim/cli/json_report.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "sim/bmc/boot_flag_words.h"
#include "sim/cli/findings_text.h"
#include "sim/cli/json_list.h"
#include "sim/cli/phases.h"
#include "sim/cli/policy_json.h"
#include "sim/cli/printable_text.h"
#include "sim/firmware/guid_text.h"
#include "sim/firmware/services/device_path_text.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

// In the order of Passing.
constexpr const char* kPassingNames[] = {"device", "stall", "ports", "events"};
static_assert(std::size(kPassingNames) == std::tuple_size_v<TimesPassed>);

double Seconds(Ticks ticks) { return static_cast<double>(ticks) / static_cast<double>(kSecond); }

std::string NumberText(std::uint16_t number) { return fmt::format("{:04X}", number); }

Json NumberJson(const std::optional<std::uint16_t>& number) {
  return number ? Json(NumberText(*number)) : Json(nullptr);
}

Json OptionJson(const OptionReport& option) {
  return {{"number", NumberText(option.number)},
          {"name", PrintableText(option.name)},
          {"path", option.path},
          {"state", OptionState(option)},
          {"attributes", option.attributes},
          {"in_order", option.inOrder},
          {"legacy", option.legacy},
          {"firmware", option.firmware},
          {"group", option.group}};
}

Json AttemptJson(const AttemptReport& attempt) {
  return {{"option", attempt.option ? Json(NumberText(*attempt.option)) : Json(nullptr)},
          {"what", attempt.what},
          {"legacy", attempt.legacy},
          {"loaded", attempt.loaded},
          {"status", StatusName(attempt.status)},
          {"reason", attempt.reason},
          {"ended_boot", attempt.ended}};
}

std::string HexBytes(const std::vector<std::byte>& data) {
  std::string text;
  for (const std::byte each : data) {
    text += fmt::format("{:02x}", std::to_integer<unsigned>(each));
  }
  return text;
}

Json WriteJson(const VariableWrite& write) {
  return {{"kind", VariableWriteKindName(write.kind)},
          {"name", PrintableText(write.name)},
          {"guid", GuidText(write.guid)},
          {"attributes", write.attributes},
          {"size", write.size},
          {"step", write.step},
          {"data", HexBytes(write.data)},
          {"status", StatusName(write.status)}};
}

Json RequestJson(const BootReport& report) {
  const BootRequestReport& request = report.request;
  Json json = {{"source", nullptr},
               {"flags", fmt::format("{:02x}", fmt::join(request.flags, " "))},
               {"device", nullptr},
               {"persistent", request.Persistent()},
               {"efi", request.Efi()},
               {"instance", nullptr},
               {"acknowledged", request.acknowledged},
               {"cleared", request.cleared},
               {"kept", request.kept},
               {"followed", request.followed},
               {"option", NumberJson(request.option)},
               {"result", RequestResult(report)}};
  if (request.Asked()) {
    json["source"] = request.source == BootRequestReport::Source::Bmc ? "bmc" : "nvram";
    json["device"] = BootDeviceWord(request.flags);
  }
  if (const auto instance = BootInstance(request.flags)) {
    json["instance"] = *instance;
  }
  return json;
}

Json FaultJson(const FaultReport& fault) {
  const bool met = fault.met != 0;
  return {{"words", fault.words},
          {"met", fault.met},
          {"first", met ? Json(fault.first) : Json(nullptr)},
          {"step", met ? Json(fault.step) : Json(nullptr)},
          {"time", met ? Json(Seconds(fault.at)) : Json(nullptr)}};
}

Json DamagedJson(const DamagedOption& option) {
  return {{"name", PrintableText(option.name)}, {"size", option.size}, {"deleted", option.deleted}};
}

Json LoaderMoveJson(const LoaderMove& move) {
  return {{"number", NumberText(move.number)},
          {"name", PrintableText(move.name)},
          {"now", NumberText(move.now)},
          {"from", move.from},
          {"to", move.to}};
}

Json DeviceJson(const DeviceWithoutOption& device) {
  return {{"path", PrintableText(device.path)}, {"reason", device.reason}};
}

Json BootedJson(const BootReport& report) {
  if (!report.Started()) {
    return nullptr;
  }
  Json booted = {{"number", nullptr}, {"name", nullptr}, {"path", nullptr}};
  if (report.bootCurrent) {
    booted["number"] = NumberText(*report.bootCurrent);
  }
  if (const OptionReport* option = BootedOption(report)) {
    booted["name"] = PrintableText(option->name);
  }
  if (const auto path = DevicePathText(report.outcome.path.Bytes()); path && !path->empty()) {
    booted["path"] = PrintableText(*path);
  } else if (const OptionReport* option = BootedOption(report)) {  // the firmware's own file has no path but this
    booted["path"] = PrintableText(option->path);
  }
  return booted;
}

Json OutcomeJson(const BootReport& report) {
  Json outcome = {{"end", BootEndName(report.outcome.end)},
                  {"status", StatusName(report.outcome.status)},
                  {"text", report.outcome.text},
                  {"summary", OutcomeText(report)}};
  if (report.outcome.end == BootEnd::LegacyBoot) {
    outcome["bbs_index"] = report.outcome.bbsIndex;
  }
  if (report.outcome.end == BootEnd::ExitedBootServices) {
    const SystemTakenOver& system = report.outcome.system;
    outcome["system"] = {{"command_line", PrintableText(system.commandLine)},
                         {"initrd_size", system.initrd ? Json(*system.initrd) : Json(nullptr)},
                         {"memory_map_entries", system.memoryMapEntries},
                         {"memory_map_size", system.memoryMapSize}};
  }
  return outcome;
}

Json TimeJson(const BootReport& report) {
  Json steps = Json::array();
  for (const StepReport& step : report.steps) {
    Json waited = Json::object();
    for (std::size_t i = 0; i < step.waited.size(); ++i) {
      waited[kPassingNames[i]] = Seconds(step.waited[i]);
    }
    steps.push_back({{"number", StepNumber(step.name)},
                     {"name", step.name},
                     {"start", Seconds(step.start)},
                     {"duration", Seconds(step.duration)},
                     {"waited", std::move(waited)}});
  }
  Json phases = Json::object();
  const auto times = PhaseTimes(report);
  for (std::size_t phase = 0; phase < times.size(); ++phase) {
    phases[PhaseName(static_cast<Phase>(phase))] = Seconds(times[phase]);
  }
  return {{"total", Seconds(report.outcome.time)}, {"phases", std::move(phases)}, {"steps", std::move(steps)}};
}

Json PoolJson(const BootReport& report) {
  Json leaks = Json::array();
  for (const PoolAllocator::Leak& leak : report.outcome.leaks) {
    leaks.push_back({{"size", leak.block.size}, {"allocation", leak.block.serial}});
  }
  return {{"peak", report.poolPeak}, {"in_use", report.poolInUse}, {"leaks", std::move(leaks)}};
}

// The counts of the BMC's two interfaces by themselves, under names without their dots.
Json BmcJson(const BootReport& report) {
  constexpr std::pair<const char*, const char*> kCounts[] = {
      {"exchanges", "bmc.exchanges"},     {"bytes", "bmc.bytes"},
      {"retries", "bmc.retries"},         {"timeouts", "bmc.timeouts"},
      {"ipmi_requests", "ipmi.requests"}, {"ipmi_errors", "ipmi.errors"},
      {"ipmi_timeouts", "ipmi.timeouts"},
  };
  Json bmc = Json::object();
  for (const auto& [name, count] : kCounts) {
    const auto found = report.counts.find(count);
    bmc[name] = found == report.counts.end() ? 0 : found->second;
  }
  Ticks waited = 0;
  for (const StepReport& step : report.steps) {
    waited += PhaseOf(step.name) == Phase::Bmc ? step.duration : 0;
  }
  bmc["seconds_in_steps"] = Seconds(waited);
  bmc["silent"] = BmcSilences(report) != 0;
  return bmc;
}

Json DeletedJson(const DeletedOption& option) {
  return {{"number", NumberText(option.number)}, {"name", PrintableText(option.name)}, {"reason", option.reason}};
}

// story: null when nobody told one.
Json StartJson(const BootReport& report, const PolicyStory* story) {
  Json passed = JsonList(OptionsPassedOver(report), [](const PassedOver& each) {
    return Json{{"number", NumberText(each.number)}, {"reason", each.reason}};
  });
  return {{"outcome", OutcomeJson(report)},
          {"booted", BootedJson(report)},
          {"order", JsonList(report.bootOrder, NumberText)},
          {"options", JsonList(report.options, OptionJson)},
          {"attempts", JsonList(report.attempts, AttemptJson)},
          {"passed_over", std::move(passed)},
          {"boot_next", NumberJson(report.bootNext)},
          {"boot_next_taken", NumberJson(report.bootNextTaken)},
          {"bmc_request", RequestJson(report)},
          {"faults", JsonList(report.faults, FaultJson)},
          {"damaged_options", JsonList(report.damaged, DamagedJson)},
          {"deleted_options", JsonList(report.deleted, DeletedJson)},
          {"moved_loaders", JsonList(report.movedLoaders, LoaderMoveJson)},
          {"devices_without_option", JsonList(report.devicesWithoutOption, DeviceJson)},
          {"policy", story == nullptr ? Json(nullptr) : PolicyJson(*story)},
          {"variables_written", JsonList(report.writes, WriteJson)},
          {"counts", report.counts},
          {"bmc", BmcJson(report)},
          {"time", TimeJson(report)},
          {"pool", PoolJson(report)},
          {"complaints", report.complaints},
          {"foreign_complaints", report.foreignComplaints},
          {"console", report.console},
          {"screen", report.screen}};
}

Json BootJson(const BootResult& boot) {
  Json starts = Json::array();
  for (std::size_t i = 0; i < boot.starts.size(); ++i) {
    starts.push_back(StartJson(boot.starts[i], i < boot.stories.size() ? &boot.stories[i] : nullptr));
  }
  return {{"started", boot.Started()},
          {"booted", BootedJson(boot.Last())},
          {"time", Seconds(boot.Time())},
          {"resets", {{"warm", boot.warmResets}, {"cold", boot.coldResets}, {"limit_reached", boot.resetLimitReached}}},
          {"starts", std::move(starts)}};
}

}  // namespace

std::string JsonReport(const std::string& serverName, const std::vector<std::string>& notes,
                       const std::vector<BootResult>& boots) {
  const Json report = {{"server", serverName}, {"notes", notes}, {"boots", JsonList(boots, BootJson)}};
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace sim
