#include "sim/cli/bmc_report.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "sim/bmc/bmc.h"
#include "sim/cli/commands.h"
#include "sim/cli/json_list.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/terminal.h"
#include "sim/policy/actual_order.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

// The report of the last boot that made one, and the one that a changed boot order table made stale.
constexpr const char* kReports[] = {"ActualOrder.xml", "ActualOrder_stale.xml"};

struct ReportOptions {
  bool json = false;
  bool debug = false;
};

struct PlaceField {
  const char* name;
  const char* word;  // in front of its value
};
constexpr PlaceField kPlaceFields[] = {{"DeviceType", ""}, {"SubType", ""}, {"Slot", "slot "}, {"Port", "port "}};

std::string Place(const ReportedTarget& target) {
  std::string place;
  for (const PlaceField& field : kPlaceFields) {
    if (const std::string value = target.Value(field.name); !value.empty()) {
      place += fmt::format("{}{}{}", place.empty() ? "" : ", ", field.word, value);
    }
  }
  return place;
}

void Print(const char* name, std::size_t size, const ActualOrderReport& report, const ReportOptions& options) {
  fmt::print("{}, {} bytes\n", name, size);
  for (const auto& [field, value] : report.header) {
    fmt::print("  {:<20} {}\n", PrintableText(field), PrintableText(value));
  }
  std::size_t number = 0;
  for (const ReportedTarget& target : report.targets) {
    const std::string given = target.Value("RN") == target.type ? "" : target.Value("RN");
    fmt::print("  {:>3}. {:<16} {}\n", ++number, PrintableText(target.type), PrintableText(target.Value("DeviceName")));
    fmt::print("       {}{}{}\n", ErrorCodeText(target.Value("ErrorCode")),
               given.empty() ? "" : "; target \"" + PrintableText(given) + "\"",
               Place(target).empty() ? "" : "; " + PrintableText(Place(target)));
  }
  if (options.debug) {
    fmt::print("{}\n", PrintableText(report.debug, true));
  }
}

Json FieldsJson(const ReportFields& fields) {
  Json object = Json::object();
  for (const auto& [name, value] : fields) {
    object[PrintableText(name)] = PrintableText(value);
  }
  return object;
}

Json ReportJson(const char* name, std::size_t size, const ActualOrderReport& report) {
  return {{"file", name},
          {"size", size},
          {"error", report.error.empty() ? Json(nullptr) : Json(report.error)},
          {"header", FieldsJson(report.header)},
          {"targets", JsonList(report.targets,
                               [](const ReportedTarget& target) {
                                 Json json = {{"type", PrintableText(target.type)}};
                                 json.update(FieldsJson(target.fields));
                                 return json;
                               })},
          {"debug", PrintableText(report.debug, true)}};
}

int ShowReports(const std::filesystem::path& state, const ReportOptions& options) {
  const FileStore files(Bmc::FilesOf(state / "bmc"));
  Json list = Json::array();
  int status = kExitStarted;
  for (const char* name : kReports) {
    const auto bytes = files.Read(name);
    if (!bytes) {
      continue;
    }
    const ActualOrderReport report = ReadActualOrder({reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    list.push_back(ReportJson(name, bytes->size(), report));
    if (!options.json) {
      Print(name, bytes->size(), report, options);
    }
    if (!report.error.empty()) {
      status = Fail(fmt::format("{}: {}", name, report.error));
    }
  }
  if (options.json) {
    fmt::print("{}\n", list.dump(2));
  } else if (list.empty()) {
    fmt::print("no report: no boot of this server made one\n");
  }
  return status;
}

}  // namespace

void AddBmcReport(CLI::App& bmc, const std::filesystem::path& state, int& status) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App& command = *bmc.add_subcommand("report", "Show what the last boots reported of their order");
  command.add_flag("--json", options->json, "As JSON");
  command.add_flag("--debug", options->debug, "With the debug text, the hardware that was present");
  command.callback([&state, &status, options] { status = ShowReports(state, *options); });
}

}  // namespace sim
