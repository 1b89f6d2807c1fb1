#include "sim/cli/phases.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::array<const char*, kPhaseCount> kNames{
    "platform and consoles", "drivers", "BMC", "options and devices", "order", "saving", "hand-over",
    "outside the steps"};

// clang-format off
constexpr PhaseStep kSteps[] = {
    {"SignalConnectDriversEvent", Phase::Platform},
    {"PciOptionRomControlLibInitialize", Phase::Platform},
    {"SignalCompletePowerManagementProtocolEvent", Phase::Platform},
    {"ConnectRootBridgeHandlesBeforeEndOfDxe", Phase::Platform},
    {"SignalEndOfDxe", Phase::Platform},
    {"ConnectRootBridgeHandles", Phase::Platform},
    {"RegisterMemoryTypeInformationUpdateCallback", Phase::Platform},
    {"ReportConnectConOutProgressCode", Phase::Platform},
    {"ConnectVgaConOut", Phase::Platform},
    {"ConnectConOutVariable", Phase::Platform},
    {"InstallConOutStartedProtocol", Phase::Platform},
    {"ReportConnectConInProgressCode", Phase::Platform},
    {"ConnectPs2ConIn", Phase::Platform},
    {"ConnectUsbConIn", Phase::Platform},
    {"ConnectConInVariable", Phase::Platform},
    {"InstallConInStartedProtocol", Phase::Platform},
    {"ConInAvailabilityBeep", Phase::Platform},
    {"WaitForUserInput", Phase::Platform},
    {"ConnectEverything", Phase::Drivers},
    {"RunDrivers", Phase::Drivers},
    {"InitConVars", Phase::Platform},
    {"ShadowAllLegacyOptionRoms", Phase::Drivers},
    {"MACAddressInfoInitialize", Phase::Drivers},
    {"SignalAllDriversConnectedEvent", Phase::Drivers},
    {"CheckDriverHealth", Phase::Drivers},
    {"LsiUefiRequirementForHwraid", Phase::Drivers},
    {"SignalExitPmAuthProtocolEvent", Phase::Platform},
    {"InstallFwLoadFileProtocol", Phase::Options},
    {"UpdateBootOptionVariables", Phase::Options},
    {"RestoreEfiBootVariablesFromBMC", Phase::Bmc},
    {"RestoreBootorder", Phase::Bmc},
    {"BootOrderTableEntryPoint", Phase::Bmc},
    {"DetectZephanConfigMode", Phase::Bmc},
    {"CheckZephan_EFIBootSupport", Phase::Bmc},
    {"AdjustEfiOsBootOrder", Phase::Order},
    {"ReadBootOptions", Phase::Options},
    {"UnmaskOrphanDevices", Phase::Options},
    {"CollectUsbBbsDevices", Phase::Options},
    {"CollectBootDevices", Phase::Options},
    {"GenerateUefiPolicyOptionsEntry", Phase::Options},
    {"FilterBootDeviceList", Phase::Options},
    {"CreateEfiOsBootOption", Phase::Options},
    {"MatchBootOptionsToDevices", Phase::Options},
    {"DeleteUnmatchedUefiHddBootDevices", Phase::Options},
    {"CheckForNoAssociateOption", Phase::Options},
    {"CreateBootOptionsForNewBootDevices", Phase::Options},
    {"RemoveNonSupportedBootOptions", Phase::Options},
    {"SetGroupBootOrder", Phase::Order},
    {"VBootSetBootOptionTags", Phase::Order},
    {"EfiOsName_NormalizeBootOptions", Phase::Options},
    {"PreProcessBootOptions", Phase::Options},
    {"DeleteIdenticalBootOptions", Phase::Options},
    {"RemoveOrphanOptions", Phase::Options},
    {"SetBootOptionPriorities", Phase::Order},
    {"SetIpmiBootOptionPriorities", Phase::Bmc},
    {"InactivateLoadingPlaceholderOption", Phase::Order},
    {"PostProcessBootOptions", Phase::Order},
    {"ApplyOemBootOptionPolicy", Phase::Order},
    {"MaskOrphanDevices", Phase::Order},
    {"SaveLegacyDevOrder", Phase::Saving},
    {"SetDefaultKuiBootOrder", Phase::Order},
    {"BuildBootOrderTable", Phase::Bmc},
    {"SaveBootOptions", Phase::Saving},
    {"RemoveBootxxxx", Phase::Saving},
    {"SaveEfiBootVaiablesToBMC", Phase::Bmc},
    {"CallTheDispatcher", Phase::HandOver},
    {"RecoverTheMemoryAbove4Gb", Phase::HandOver},
    {"PerformCapsuleVariableCleanup", Phase::Saving},
    {"HandoffToKui", Phase::HandOver},
    {"ReadBootOptionAndBoot", Phase::HandOver},
};
// clang-format on

}  // namespace

std::span<const PhaseStep> PhaseSteps() { return kSteps; }

const char* PhaseName(Phase phase) { return kNames[static_cast<std::size_t>(phase)]; }

Phase PhaseOf(std::string_view step) {
  const auto found = std::ranges::find(kSteps, step, &PhaseStep::step);
  return found == std::end(kSteps) ? Phase::Other : found->phase;
}

unsigned StepNumber(std::string_view step) {
  const auto found = std::ranges::find(kSteps, step, &PhaseStep::step);
  return found == std::end(kSteps) ? 0 : static_cast<unsigned>(found - std::begin(kSteps)) + 1;
}

std::array<Ticks, kPhaseCount> PhaseTimes(const BootReport& report) {
  std::array<Ticks, kPhaseCount> times{};
  Ticks inSteps = 0;
  for (const StepReport& step : report.steps) {
    times[static_cast<std::size_t>(PhaseOf(step.name))] += step.duration;
    inSteps += step.duration;
  }
  if (report.outcome.time > inSteps) {
    times[static_cast<std::size_t>(Phase::Other)] += report.outcome.time - inSteps;
  }
  return times;
}

}  // namespace sim
