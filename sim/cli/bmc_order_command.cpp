#include "sim/cli/bmc_order_command.h"

#include <fmt/format.h>

#include <fstream>
#include <memory>

#include <nlohmann/json.hpp>

#include "sim/bmc/bmc.h"
#include "sim/cli/commands.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/terminal.h"
#include "sim/server/boot_order_table.h"

namespace sim {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct OrderArguments {
  std::vector<std::string> groups;  // empty: show
  std::string json;                 // a file, "-" for standard output, empty: none
};

Json GroupJson(const BootOrderTable& table, const BootOrderTable::Entry& entry) {
  Json items = Json::array();
  for (const std::uint16_t item : entry.items) {
    Json line{{entry.code == BootOrderTable::kEfi ? "option" : "bbs_index", item},
              {"name", PrintableText(table.NameOf(entry.code, item))}};
    items.push_back(std::move(line));
  }
  return {{"group", BootGroupName(entry.code)}, {"items", std::move(items)}};
}

Json OrderJson(const std::vector<std::uint8_t>& bytes) {
  const auto table = BootOrderTable::Parse(bytes);
  if (!table) {
    return {{"bytes", bytes.size()}, {"order", nullptr}};
  }
  Json order = Json::array();
  for (const std::uint8_t code : table->Groups()) {
    order.push_back(BootGroupName(code));
  }
  Json groups = Json::array();
  for (const BootOrderTable::Entry& entry : table->entries) {
    if (entry.code != BootOrderTable::kSys) {
      groups.push_back(GroupJson(*table, entry));
    }
  }
  return {{"bytes", table->length},          {"changed", (table->flags & BootOrderTable::kChanged) != 0},
          {"sum_is_good", table->sumIsGood}, {"damage", table->damage},
          {"order", std::move(order)},       {"groups", std::move(groups)}};
}

int WriteJson(const std::string& file, const std::vector<std::uint8_t>& bytes) {
  const std::string text = OrderJson(bytes).dump(2) + "\n";
  if (file == "-") {
    fmt::print("{}", text);
    return kExitStarted;
  }
  std::ofstream stream(file, std::ios::trunc);
  stream << text;
  return stream.flush() ? int{kExitStarted} : Fail(fmt::format("{}: cannot be written", file));
}

int Show(const BmcState& state, const std::string& json) {
  if (json != "-") {
    for (const std::string& line : BootOrderTableText(state.bootOrderTable)) {
      fmt::print("{}\n", PrintableText(line));
    }
  }
  return json.empty() ? int{kExitStarted} : WriteJson(json, state.bootOrderTable);
}

int RunOrder(const fs::path& folder, const OrderArguments& arguments) {
  const fs::path bmc = folder / "bmc";
  std::error_code ignored;
  for (const fs::path& place : {folder, bmc}) {
    if (fs::exists(place, ignored) && !fs::is_directory(place, ignored)) {
      return Fail(fmt::format("{}: is no folder", place.string()));
    }
  }
  std::string error;
  auto state = BmcState::Load(Bmc::ParametersOf(bmc), error);
  if (!state) {
    return Fail(error);
  }
  if (!arguments.groups.empty()) {
    auto table = WithGroupOrder(state->bootOrderTable, arguments.groups, error);
    if (!table) {
      return Fail(error);
    }
    state->bootOrderTable = std::move(*table);
    if (!state->Save(Bmc::ParametersOf(bmc), error)) {
      return Fail(error);
    }
  }
  return Show(*state, arguments.json);
}

}  // namespace

void AddBmcOrder(CLI::App& bmc, const fs::path& state, int& status) {
  const auto arguments = std::make_shared<OrderArguments>();
  CLI::App& command = *bmc.add_subcommand("order", "The boot order table: shown, or changed for the next boot");
  command
      .add_option("GROUPS", arguments->groups,
                  "The groups in their new order, with commas: FDD, IHD, CDD, USB, NIC, BEV, EFI; none: show it")
      ->delimiter(',');
  command.add_option("--json", arguments->json, "Write the table as JSON there; - for standard output")
      ->type_name("FILE");
  command.callback([arguments, &state, &status] { status = RunOrder(state, *arguments); });
}

}  // namespace sim
