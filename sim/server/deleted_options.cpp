#include "sim/server/deleted_options.h"

#include <algorithm>
#include <optional>

#include "sim/bus/utf_text.h"
#include "sim/server/load_option_view.h"

namespace sim {
namespace {

// What a step says when it takes an option out of its list; the option's name follows up to the end given.
struct Word {
  std::string_view step;
  std::string_view before;
  std::string_view after;
  const char* reason;
};
constexpr std::string_view kDeleting = ") Description=";
constexpr std::string_view kMapped = " mapped to";
constexpr Word kWords[] = {
    {"RemoveNonSupportedBootOptions", "**** Delete option : ", " ",
     "the management mode and the UEFI setting do not allow it"},
    {"SetGroupBootOrder", "RemoveBootOptions:Delete option:", "",
     "strict group order: the BMC does not name its group"},
    {"PreProcessBootOptions", "type Orphan:", "", "the firmware's own, and its device is gone"},
    {"RemoveOrphanOptions", "Delete option : ", " ", "its device is gone"},
    {"DeleteIdenticalBootOptions", kDeleting, kMapped, "the same as an option before it"},
    {"InactivateLoadingPlaceholderOption", kDeleting, kMapped, "a UEFI option, and UEFI boot mode is off"},
    {"PostProcessBootOptions", "Deleting Orphan Header:", "", "a group without members"},
};
constexpr const char* kUnlisted = "no order names it";

}  // namespace

std::vector<DeletedOptionsWatch::Option> DeletedOptionsWatch::Read(const VariableStore& store) {
  std::vector<Option> options;
  for (const auto& variable : store.All()) {
    const auto number = variable.guid == gEfiGlobalVariableGuid ? BootOptionNumber(variable.name) : std::nullopt;
    const auto option = number ? ParseLoadOption(variable.data) : std::nullopt;
    if (!option) {
      continue;
    }
    Option read{*number, option->name, {}};
    for (const DevicePath& path : option->paths) {
      if (!IsMask(path)) {
        read.identity.insert(read.identity.end(), path.Bytes().begin(), path.Bytes().end());
      }
    }
    read.identity.insert(read.identity.end(), option->optionalData.begin(), option->optionalData.end());
    options.push_back(std::move(read));
  }
  return options;
}

void DeletedOptionsWatch::Begin(const VariableStore& store) { before_ = Read(store); }

void DeletedOptionsWatch::OnLine(std::string_view step, std::string_view line) {
  for (const Word& word : kWords) {
    const std::size_t at = word.step == step ? line.find(word.before) : std::string_view::npos;
    if (at == std::string_view::npos) {
      continue;
    }
    std::string_view name = line.substr(at + word.before.size());
    const std::size_t end = word.after.empty() ? std::string_view::npos : name.rfind(word.after);
    name = name.substr(0, end);
    reasons_.emplace(name, word.reason);
  }
}

std::vector<DeletedOption> DeletedOptionsWatch::Find(const VariableStore& store) const {
  const std::vector<Option> after = Read(store);
  std::vector<DeletedOption> deleted;
  for (const Option& option : before_) {
    if (std::ranges::any_of(after, [&option](const Option& each) {
          return each.name == option.name && each.identity == option.identity;
        })) {
      continue;
    }
    const auto reason = reasons_.find(Utf8OfText(option.name));
    deleted.push_back({option.number, option.name, reason != reasons_.end() ? reason->second : kUnlisted});
  }
  return deleted;
}

}  // namespace sim
