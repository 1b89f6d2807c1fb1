// Watches one boot for its report: the debug log with the steps in it, attempts to start something, variables written,
// and the order in force at the end.
#pragma once

#include "sim/server/machine_parts.h"
#include "sim/server/server.h"
#include "sim/server/virtual_addresses.h"

namespace sim {

class BootRecorder {
 public:
  // The driver's level for the line before each step; the recorder needs these lines, and hides them from a reader
  // who did not ask for them.
  static constexpr std::uint64_t kStepLevel = 0x20;

  BootRecorder(Machine& machine, const BootRequest& request);
  void Connect(MachineParts& parts);
  // A request or exchange of the BMC's in a line; handed on with the virtual time in front.
  void OnTraffic(const std::string& line);
  void Finish(BootReport& report, const VariableStore& store, EFI_HANDLE driver);

 private:
  enum class AttemptOf { Load, Start, Legacy };
  // Where an attempt is kept: its place among those of its kind.
  struct AttemptPlace {
    AttemptOf of;
    std::size_t index;
    std::optional<std::uint16_t> option;
  };

  void OnLine(const std::string& line);
  void CloseStep();
  std::optional<std::uint16_t> BootCurrent() const;
  void WatchAttempts();
  AttemptReport Report(const AttemptPlace& place) const;
  void ReportAttempts(BootReport& report, EFI_HANDLE driver) const;

  Machine& machine_;
  const BootRequest& request_;
  VirtualAddresses addresses_;
  MachineParts* parts_ = nullptr;
  std::string log_;
  std::vector<StepReport> steps_;
  TimesPassed passedBefore_{};          // the last step
  std::vector<AttemptPlace> attempts_;  // in time order
};

// The options that the variables describe, those of BootOrder first.
std::vector<OptionReport> ReportOptions(const VariableStore& store, std::vector<std::uint16_t>& order);

}  // namespace sim
