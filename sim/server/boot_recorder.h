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
  // transport: the server has an IPMI transport.
  void Connect(MachineParts& parts, bool transport);
  // A request or exchange of the BMC's in a line; handed on with the virtual time in front.
  void OnTraffic(const std::string& line);
  void OnIpmi(const IpmiExchange& exchange) { bmcRequest_.OnIpmi(exchange); }
  // A scripted fault befell that call, write or exchange.
  void OnFault(std::string_view words, std::uint64_t nth);
  // Called with the name of each step as it begins, before the request's own listener.
  void OnStep(std::function<void(std::string_view)> listener) { stepListener_ = std::move(listener); }
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
  void Show(const std::string& line, bool isStep);
  void CloseStep();
  std::uint64_t ServiceCalls() const;
  std::optional<std::uint16_t> NumberIn(std::u16string_view variable, bool volatileOnly = false) const;
  std::optional<std::uint16_t> OptionOfLoad() const;
  std::optional<std::uint16_t> OptionOfLegacyBoot() const;
  void NoteDamagedOptions();
  void WatchAttempts();
  void ReportBoot(BootReport& report, const VariableStore& store, EFI_HANDLE driver);
  AttemptReport Report(const AttemptPlace& place) const;
  static void NameStepsOfWrites(BootReport& report);
  void ReportAttempts(BootReport& report, EFI_HANDLE driver) const;

  Machine& machine_;
  const BootRequest& request_;
  VirtualAddresses addresses_;
  MachineParts* parts_ = nullptr;
  std::string log_;
  std::vector<StepReport> steps_;
  std::function<void(std::string_view)> stepListener_;
  TimesPassed passedBefore_{};          // the last step
  std::uint64_t callsBefore_ = 0;       // the last step
  std::vector<AttemptPlace> attempts_;  // in time order
  std::map<EFI_HANDLE, std::optional<std::uint16_t>> optionOfImage_;
  std::optional<std::uint16_t> bootNextBefore_;
  BootRequestWatch bmcRequest_;
  LoaderOrderWatch loaderOrder_;
  std::vector<FaultReport> faults_;
  std::vector<DamagedOption> damaged_;
  DeletedOptionsWatch deleted_;
};

// The options that the variables describe, those of BootOrder first.
std::vector<OptionReport> ReportOptions(const VariableStore& store, std::vector<std::uint16_t>& order);

}  // namespace sim
