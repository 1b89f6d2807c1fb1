// What a boot does to the options of operating systems' loaders: those that it deletes before it loads the options,
// since another one starts the same loader or their partition is gone, and those that it moves back in the order. Found
// out from outside, from the variables before and after.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"

namespace sim {

struct OptionReport;

struct LoaderOrderChange {
  enum class Kind { Deleted, Moved };
  Kind kind = Kind::Deleted;
  std::uint16_t number = 0;  // before the boot
  std::u16string name;
  // Deleted: the option that starts the same loader; none: the partition is gone. Moved: its number now.
  std::optional<std::uint16_t> other;
  std::size_t from = 0;  // Moved: places in the order, the first is 1
  std::size_t to = 0;
};

class LoaderOrderWatch {
 public:
  // As the driver begins the step.
  void OnStep(const std::string& step, const VariableStore& store);
  // At the end of the boot.
  std::vector<LoaderOrderChange> Report(const VariableStore& store) const;

 private:
  std::vector<OptionReport> before_;  // when the first step began, in order
  std::vector<LoaderOrderChange> deleted_;
  std::vector<OptionReport> reviewed_;  // at the beginning of the step that deletes
};

}  // namespace sim
