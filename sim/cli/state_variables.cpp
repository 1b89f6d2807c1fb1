#include "sim/cli/state_variables.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <cstring>
#include <set>

#include "sim/cli/printable_text.h"
#include "sim/server/server.h"

namespace sim {
namespace {

namespace fs = std::filesystem;
constexpr std::uint32_t kKept =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

}  // namespace

fs::path VariablesOf(const fs::path& state) {
  const fs::path nvram = state / "nvram";
  std::error_code ignored;
  return fs::is_directory(nvram, ignored) ? nvram : state;
}

std::u16string OptionVariable(std::uint16_t number) { return fmt::format(u"Boot{:04X}", number); }

StateVariables::StateVariables(const fs::path& state) : folder_(VariablesOf(state)), store_(kAnyServersLimits) {
  std::error_code ignored;
  if (!fs::is_directory(folder_.Path(), ignored)) {
    throw StateError(fmt::format("{}: expected a state folder with nvram/ in it", folder_.Path().string()));
  }
  Check(folder_.Load(store_));
}

void StateVariables::Check(bool kept) const {
  if (!kept) {
    throw StateError(PrintableText(folder_.Error()));
  }
}

const Variable* StateVariables::Find(std::u16string_view name, const EFI_GUID& guid) const {
  return store_.Find(name, guid);
}

void StateVariables::Set(std::u16string_view name, const EFI_GUID& guid, std::uint32_t attributes,
                         std::vector<std::byte> data) {
  const Variable* before = store_.Find(name, guid);
  const std::uint32_t kept = before == nullptr ? attributes : before->attributes;
  if (EFI_ERROR(store_.Set(name, guid, kept, data))) {
    throw StateError(fmt::format("{}: cannot be set to {} bytes", PrintableText(std::u16string(name)), data.size()));
  }
  Check(folder_.Write(*store_.Find(name, guid)));
}

void StateVariables::Delete(std::u16string_view name, const EFI_GUID& guid) {
  if (const Variable* variable = store_.Find(name, guid)) {
    Check(folder_.Remove(*variable));
    static_cast<void>(store_.Set(name, guid, variable->attributes, {}));
  }
}

std::vector<std::uint16_t> StateVariables::Order() const {
  const Variable* variable = Find(u"BootOrder");
  std::vector<std::uint16_t> order(variable == nullptr ? 0 : variable->data.size() / 2);
  if (!order.empty()) {
    std::memcpy(order.data(), variable->data.data(), order.size() * 2);
  }
  return order;
}

void StateVariables::SetOrder(const std::vector<std::uint16_t>& order) {
  if (order.empty()) {
    Delete(u"BootOrder");
    return;
  }
  const auto bytes = std::as_bytes(std::span(order));
  Set(u"BootOrder", gEfiGlobalVariableGuid, kKept, {bytes.begin(), bytes.end()});
}

const Variable* StateVariables::Option(std::uint16_t number) const {
  if (const Variable* variable = Find(OptionVariable(number))) {
    return variable;
  }
  return Find(fmt::format(u"Boot{:04x}", number));
}

std::vector<std::uint16_t> StateVariables::OptionNumbers() const {
  std::set<std::uint16_t> numbers;
  for (const Variable& variable : store_.All()) {
    if (const auto number = BootOptionNumber(variable.name); number && variable.guid == gEfiGlobalVariableGuid) {
      numbers.insert(*number);
    }
  }
  return {numbers.begin(), numbers.end()};
}

std::vector<std::string> StateVariables::TakeOver(const VariableStore& other) {
  std::vector<std::string> changes;
  for (const Variable& mine : store_.All()) {
    if (mine.NonVolatile() && other.Find(mine.name, mine.guid) == nullptr) {
      Check(folder_.Remove(mine));
      changes.push_back(PrintableText(mine.name) + " deleted");
    }
  }
  for (const Variable& theirs : other.All()) {
    const Variable* mine = store_.Find(theirs.name, theirs.guid);
    if (mine == nullptr || mine->attributes != theirs.attributes || mine->data != theirs.data) {
      Check(folder_.Write(theirs));
      changes.push_back(PrintableText(theirs.name));
    }
  }
  return changes;
}

}  // namespace sim
