// What a server keeps when its power goes, taken from one server and given to another: non-volatile variables, the
// BMC's files and its boot parameters.
#pragma once

#include <memory>

#include "sim/bmc/boot_flag_words.h"
#include "tests/whole_boots/server_builder.h"

namespace sim::test {

struct Kept {
  std::vector<Variable> variables;
  std::map<std::string, FileBytes> files;
  BmcState bmc;

  const Bytes* Find(std::u16string_view name) const {
    for (const Variable& variable : variables) {
      if (variable.name == name) return &variable.data;
    }
    return nullptr;
  }
  std::vector<std::uint16_t> Order() const {
    const Bytes* bytes = Find(u"BootOrder");
    std::vector<std::uint16_t> order(bytes == nullptr ? 0 : bytes->size() / 2);
    if (!order.empty()) std::memcpy(order.data(), bytes->data(), order.size() * 2);
    return order;
  }
  // The BMC holds the order and every option of it as the variables do.
  bool CopiesAreComplete() const {
    const auto same = [this](const std::string& name) {
      const Bytes* bytes = Find(std::u16string(name.begin(), name.end()));
      const auto file = files.find(name);
      return bytes != nullptr && file != files.end() &&
             std::ranges::equal(std::as_bytes(std::span(file->second)), *bytes);
    };
    return same("BootOrder") && std::ranges::all_of(Order(), [&same](std::uint16_t number) {
             return same(fmt::format("Boot{:04X}", number));
           });
  }
  void Drop(std::u16string_view name) {
    std::erase_if(variables, [name](const Variable& one) { return one.name == name; });
  }
  void Put(std::u16string name, const Bytes& data, const EFI_GUID& guid = gEfiGlobalVariableGuid) {
    Drop(name);
    if (!data.empty()) variables.push_back({std::move(name), guid, kKept, data});
  }
  void PutOrder(const std::vector<std::uint16_t>& order) {
    const auto bytes = std::as_bytes(std::span(order));
    Put(u"BootOrder", {bytes.begin(), bytes.end()});
  }
};

inline Kept Take(const Server& server) {
  Kept kept;
  for (const Variable& variable : server.Variables().All()) {
    if (variable.NonVolatile()) kept.variables.push_back(variable);
  }
  const FileStore files(Bmc::FilesOf(server.BmcFolder()));
  for (const std::string& name : files.Names()) kept.files[name] = *files.Read(name);
  std::string error;
  const auto state = BmcState::Load(Bmc::ParametersOf(server.BmcFolder()), error);
  EXPECT_TRUE(state) << error;
  kept.bmc = state.value_or(BmcState{});
  return kept;
}

inline std::unique_ptr<Server> Place(const ServerDescription& description, const Kept& kept,
                                     const std::filesystem::path& state = {}) {
  auto server = std::make_unique<Server>(description, ServerOptions{.state = state, .image = {}});
  for (const Variable& variable : kept.variables) {
    EXPECT_EQ(server->Variables().Set(variable.name, variable.guid, variable.attributes, variable.data), EFI_SUCCESS);
  }
  FileStore files(Bmc::FilesOf(server->BmcFolder()));
  for (const auto& [name, bytes] : kept.files) EXPECT_TRUE(files.Write(name, bytes));
  std::string error;
  EXPECT_TRUE(kept.bmc.Save(Bmc::ParametersOf(server->BmcFolder()), error)) << error;
  return server;
}

// Boots until nothing changes any more, at most `limit` times; the reports of all boots.
inline std::vector<BootReport> BootUntilSettled(Server& server, unsigned limit = 6) {
  std::vector<BootReport> reports;
  auto before = NonVolatile(server.Variables());
  for (bool changed = true; changed && reports.size() < limit;) {
    reports.push_back(server.Boot({}));
    ExpectClean(reports.back(), fmt::format("boot {} of a settling server", reports.size()));
    auto after = NonVolatile(server.Variables());
    changed = after != before || reports.back().outcome.end == BootEnd::Reset;
    before = std::move(after);
  }
  EXPECT_LT(reports.size(), limit) << "the server does not settle";
  return reports;
}

}  // namespace sim::test
