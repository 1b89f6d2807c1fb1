// What a boot does to the options of operating systems' loaders: those that it deletes before it loads the options,
// since another one starts the same loader or their partition is gone, and those that it moves back in the order. Found
// out from outside, from the variables before and after.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"
#include "sim/server/deleted_options.h"

namespace sim {

class HandleDatabase;
struct OptionReport;

struct LoaderMove {
  std::uint16_t number = 0;  // before the boot
  std::u16string name;
  std::uint16_t now = 0;  // its number at the end
  std::size_t from = 0;   // places in the order, the first is 1
  std::size_t to = 0;
};

class LoaderOrderWatch {
 public:
  // As the driver begins the step.
  void OnStep(const std::string& step, const VariableStore& store, const HandleDatabase& handles);
  // Gives each option that the step deleted its reason, and adds those that are missing: a double has a like one left.
  void AddDeleted(std::vector<DeletedOption>& deleted) const;
  // At the end of the boot.
  std::vector<LoaderMove> Moved(const VariableStore& store) const;

 private:
  std::vector<OptionReport> before_;  // when the first step began, in order
  std::vector<DeletedOption> deleted_;
  std::vector<OptionReport> reviewed_;  // at the beginning of the step that deletes
};

}  // namespace sim
