// Watches one boot for its report: the debug log with the steps in it, attempts to start something, variables written,
// and the order in force at the end.
#pragma once

#include "sim/server/machine_parts.h"
#include "sim/server/server.h"

namespace sim {

class BootRecorder {
 public:
  // The driver's level for the line before each step; the recorder needs these lines, and hides them from a reader
  // who did not ask for them.
  static constexpr std::uint64_t kStepLevel = 0x20;

  BootRecorder(Machine& machine, const BootRequest& request);
  void Connect(MachineParts& parts);
  void Finish(BootReport& report, const VariableStore& store, EFI_HANDLE driver);

 private:
  void OnLine(const std::string& line);
  void CloseStep();
  void ReportAttempts(BootReport& report, EFI_HANDLE driver) const;

  Machine& machine_;
  const BootRequest& request_;
  MachineParts* parts_ = nullptr;
  std::string log_;
  std::vector<StepReport> steps_;
};

// The options that the variables describe, those of BootOrder first.
std::vector<OptionReport> ReportOptions(const VariableStore& store, std::vector<std::uint16_t>& order);

}  // namespace sim
