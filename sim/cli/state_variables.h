// The variables of a state folder, read as a whole and changed one by one: what "vars" and "run" stand on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/firmware/variables/efivars_folder.h"
#include "sim/server/load_option_view.h"

namespace sim {

// The folder of variables of a state folder: its nvram/, or the folder itself when it has none.
std::filesystem::path VariablesOf(const std::filesystem::path& state);

// The server's own limits stand in its description; a boot tells when they are passed.
inline constexpr VariableStore::Limits kAnyServersLimits{
    .nonVolatileSize = 16 * 1024 * 1024, .volatileSize = 1024 * 1024, .maximumVariableSize = 1024 * 1024};

// Every member that changes something throws StateError when that cannot be kept.
class StateVariables {
 public:
  // Throws StateError when there is no such folder, or a file in it is damaged (the message names it).
  explicit StateVariables(const std::filesystem::path& state);
  StateVariables(const StateVariables&) = delete;
  StateVariables& operator=(const StateVariables&) = delete;

  const VariableStore& Store() const { return store_; }

  // Null when it is not there.
  const Variable* Find(std::u16string_view name, const EFI_GUID& guid = gEfiGlobalVariableGuid) const;
  // Keeps the attributes of a variable that is there; a new one gets these.
  void Set(std::u16string_view name, const EFI_GUID& guid, std::uint32_t attributes, std::vector<std::byte> data);
  void Delete(std::u16string_view name, const EFI_GUID& guid = gEfiGlobalVariableGuid);

  // Of BootOrder; empty when there is none.
  std::vector<std::uint16_t> Order() const;
  // An empty order deletes BootOrder.
  void SetOrder(const std::vector<std::uint16_t>& order);
  // The variable of that number, with its digits in either case; null when there is none.
  const Variable* Option(std::uint16_t number) const;
  std::vector<std::uint16_t> OptionNumbers() const;

  // Makes the folder what the other store is, as the last use of this object; names what changed ("BootOrder",
  // "Boot0003 deleted").
  std::vector<std::string> TakeOver(const VariableStore& other);

 private:
  void Check(bool kept) const;

  EfivarsFolder folder_;
  VariableStore store_;
};

// "Boot000A".
std::u16string OptionVariable(std::uint16_t number);

}  // namespace sim
