// The boot options that a boot deleted, each with the reason as far as the driver's log tells it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/firmware/variables/variable_store.h"

namespace sim {

struct DeletedOption {
  std::uint16_t number = 0;  // as the boot found it
  std::u16string name;
  std::string reason;
};

// Remembers the options at the beginning of a boot and why the driver took options out of its list.
class DeletedOptionsWatch {
 public:
  void Begin(const VariableStore& store);
  // A line of the driver's log, and the step that it came in.
  void OnLine(std::string_view step, std::string_view line);
  // The options that were there at the beginning and, by name, path and data, are under no number at the end.
  std::vector<DeletedOption> Find(const VariableStore& store) const;

 private:
  struct Option {
    std::uint16_t number;
    std::u16string name;
    std::vector<std::byte> identity;  // path and data, without the mask that comes and goes
  };
  static std::vector<Option> Read(const VariableStore& store);

  std::vector<Option> before_;
  std::map<std::string, std::string> reasons_;  // by the name as the log shows it
};

}  // namespace sim
