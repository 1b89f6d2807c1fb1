// One line per step, in the order in which they run. The array of functions and the array of names are made from it, so
// that they cannot drift apart.
#include "core/step_table.h"

#include <type_traits>

#include "bmc/steps.h"
#include "bootopt/steps.h"
#include "core/steps.h"
#include "inventory/raid_health.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

struct StepRow {
  StepFunction Run;
  const char* Name;
};

template <auto Routine>
void WithoutResult() {
  static_cast<void>(Routine());
}

// The routine itself, or a wrapper when it has a result, which the control flow does not look at.
template <auto Routine>
consteval StepFunction Step() {
  if constexpr (std::is_void_v<decltype(Routine())>) {
    return Routine;
  } else {
    return WithoutResult<Routine>;
  }
}

// clang-format off
constexpr StepRow kRows[] = {
    {Step<SignalConnectDriversEvent>(), "SignalConnectDriversEvent"},
    {Step<PciOptionRomControlLibInitialize>(), "PciOptionRomControlLibInitialize"},
    {Step<SignalCompletePowerManagementProtocolEvent>(), "SignalCompletePowerManagementProtocolEvent"},
    {Step<ConnectRootBridgeHandlesBeforeEndOfDxe>(), "ConnectRootBridgeHandlesBeforeEndOfDxe"},
    {Step<SignalEndOfDxe>(), "SignalEndOfDxe"},
    {Step<ConnectRootBridgeHandles>(), "ConnectRootBridgeHandles"},
    {Step<RegisterMemoryTypeInformationUpdateCallback>(), "RegisterMemoryTypeInformationUpdateCallback"},
    {Step<ReportConnectConOutProgressCode>(), "ReportConnectConOutProgressCode"},
    {Step<ConnectVgaConOut>(), "ConnectVgaConOut"},
    {Step<ConnectConOutVariable>(), "ConnectConOutVariable"},
    {Step<InstallConOutStartedProtocol>(), "InstallConOutStartedProtocol"},
    {Step<ReportConnectConInProgressCode>(), "ReportConnectConInProgressCode"},
    {Step<ConnectPs2ConIn>(), "ConnectPs2ConIn"},
    {Step<ConnectUsbConIn>(), "ConnectUsbConIn"},
    {Step<ConnectConInVariable>(), "ConnectConInVariable"},
    {Step<InstallConInStartedProtocol>(), "InstallConInStartedProtocol"},
    {Step<ConInAvailabilityBeep>(), "ConInAvailabilityBeep"},
    {Step<WaitForUserInput>(), "WaitForUserInput"},
    {Step<ConnectEverything>(), "ConnectEverything"},
    {Step<RunDrivers>(), "RunDrivers"},
    {Step<InitConVars>(), "InitConVars"},
    {Step<ShadowAllLegacyOptionRoms>(), "ShadowAllLegacyOptionRoms"},
    {Step<MACAddressInfoInitialize>(), "MACAddressInfoInitialize"},
    {Step<SignalAllDriversConnectedEvent>(), "SignalAllDriversConnectedEvent"},
    {Step<CheckDriverHealth>(), "CheckDriverHealth"},
    {Step<LsiUefiRequirementForHwraid>(), "LsiUefiRequirementForHwraid"},
    {Step<SignalExitPmAuthProtocolEvent>(), "SignalExitPmAuthProtocolEvent"},
    {Step<InstallFwLoadFileProtocol>(), "InstallFwLoadFileProtocol"},
    {Step<UpdateBootOptionVariables>(), "UpdateBootOptionVariables"},
    {Step<RestoreEfiBootVariablesFromBMC>(), "RestoreEfiBootVariablesFromBMC"},
    {Step<RestoreBootorder>(), "RestoreBootorder"},
    {Step<BootOrderTableEntryPoint>(), "BootOrderTableEntryPoint"},
    {Step<DetectZephanConfigMode>(), "DetectZephanConfigMode"},
    {Step<CheckZephan_EFIBootSupport>(), "CheckZephan_EFIBootSupport"},
    {Step<AdjustEfiOsBootOrder>(), "AdjustEfiOsBootOrder"},
    {Step<ReadBootOptions>(), "ReadBootOptions"},
    {Step<UnmaskOrphanDevices>(), "UnmaskOrphanDevices"},
    {Step<CollectUsbBbsDevices>(), "CollectUsbBbsDevices"},
    {Step<CollectBootDevices>(), "CollectBootDevices"},
    {Step<GenerateUefiPolicyOptionsEntry>(), "GenerateUefiPolicyOptionsEntry"},
    {Step<FilterBootDeviceList>(), "FilterBootDeviceList"},
    {Step<CreateEfiOsBootOption>(), "CreateEfiOsBootOption"},
    {Step<MatchBootOptionsToDevices>(), "MatchBootOptionsToDevices"},
    {Step<DeleteUnmatchedUefiHddBootDevices>(), "DeleteUnmatchedUefiHddBootDevices"},
    {Step<CheckForNoAssociateOption>(), "CheckForNoAssociateOption"},
    {Step<CreateBootOptionsForNewBootDevices>(), "CreateBootOptionsForNewBootDevices"},
    {Step<RemoveNonSupportedBootOptions>(), "RemoveNonSupportedBootOptions"},
    {Step<SetGroupBootOrder>(), "SetGroupBootOrder"},
    {Step<VBootSetBootOptionTags>(), "VBootSetBootOptionTags"},
    {Step<EfiOsName_NormalizeBootOptions>(), "EfiOsName_NormalizeBootOptions"},
    {Step<PreProcessBootOptions>(), "PreProcessBootOptions"},
    {Step<DeleteIdenticalBootOptions>(), "DeleteIdenticalBootOptions"},
    {Step<RemoveOrphanOptions>(), "RemoveOrphanOptions"},
    {Step<SetBootOptionPriorities>(), "SetBootOptionPriorities"},
    {Step<SetIpmiBootOptionPriorities>(), "SetIpmiBootOptionPriorities"},
    {Step<InactivateLoadingPlaceholderOption>(), "InactivateLoadingPlaceholderOption"},
    {Step<PostProcessBootOptions>(), "PostProcessBootOptions"},
    {Step<ApplyOemBootOptionPolicy>(), "ApplyOemBootOptionPolicy"},
    {Step<MaskOrphanDevices>(), "MaskOrphanDevices"},
    {Step<SaveLegacyDevOrder>(), "SaveLegacyDevOrder"},
    {Step<SetDefaultKuiBootOrder>(), "SetDefaultKuiBootOrder"},
    {Step<BuildBootOrderTable>(), "BuildBootOrderTable"},
    {Step<SaveBootOptions>(), "SaveBootOptions"},
    {Step<RemoveBootxxxx>(), "RemoveBootxxxx"},
    {Step<SaveEfiBootVaiablesToBMC>(), "SaveEfiBootVaiablesToBMC"},
    {Step<CallTheDispatcher>(), "CallTheDispatcher"},
    {Step<RecoverTheMemoryAbove4Gb>(), "RecoverTheMemoryAbove4Gb"},
    {Step<PerformCapsuleVariableCleanup>(), "PerformCapsuleVariableCleanup"},
    {Step<HandoffToKui>(), "HandoffToKui"},
    {Step<ReadBootOptionAndBoot>(), "ReadBootOptionAndBoot"},
};
// clang-format on
static_assert(std::size(kRows) == kStepCount);

consteval auto Functions() {
  std::array<StepFunction, kStepCount + 1> functions{};
  for (UINTN i = 0; i < kStepCount; ++i) {
    functions[i] = kRows[i].Run;
  }
  return functions;
}

consteval auto Names() {
  std::array<const char*, kStepCount + 2> names{};
  for (UINTN i = 0; i < kStepCount; ++i) {
    names[i] = kRows[i].Name;
  }
  names[kStepCount] = "    ";
  return names;
}

}  // namespace

constexpr std::array<StepFunction, kStepCount + 1> kSteps = Functions();
constexpr std::array<const char*, kStepCount + 2> kStepNames = Names();

}  // namespace bds
