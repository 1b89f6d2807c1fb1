// The steps' order and names, written out once more, since everything in the driver relies on them.
#include "core/step_table.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <vector>

#include "bootopt/steps.h"
#include "core/steps.h"

namespace {

using testing::ElementsAreArray;

constexpr const char* kExpected[] = {
    "SignalConnectDriversEvent",
    "PciOptionRomControlLibInitialize",
    "SignalCompletePowerManagementProtocolEvent",
    "ConnectRootBridgeHandlesBeforeEndOfDxe",
    "SignalEndOfDxe",
    "ConnectRootBridgeHandles",
    "RegisterMemoryTypeInformationUpdateCallback",
    "ReportConnectConOutProgressCode",
    "ConnectVgaConOut",
    "ConnectConOutVariable",
    "InstallConOutStartedProtocol",
    "ReportConnectConInProgressCode",
    "ConnectPs2ConIn",
    "ConnectUsbConIn",
    "ConnectConInVariable",
    "InstallConInStartedProtocol",
    "ConInAvailabilityBeep",
    "WaitForUserInput",
    "ConnectEverything",
    "RunDrivers",
    "InitConVars",
    "ShadowAllLegacyOptionRoms",
    "MACAddressInfoInitialize",
    "SignalAllDriversConnectedEvent",
    "CheckDriverHealth",
    "LsiUefiRequirementForHwraid",
    "SignalExitPmAuthProtocolEvent",
    "InstallFwLoadFileProtocol",
    "UpdateBootOptionVariables",
    "RestoreEfiBootVariablesFromBMC",
    "RestoreBootorder",
    "BootOrderTableEntryPoint",
    "DetectZephanConfigMode",
    "CheckZephan_EFIBootSupport",
    "AdjustEfiOsBootOrder",
    "ReadBootOptions",
    "UnmaskOrphanDevices",
    "CollectUsbBbsDevices",
    "CollectBootDevices",
    "GenerateUefiPolicyOptionsEntry",
    "FilterBootDeviceList",
    "CreateEfiOsBootOption",
    "MatchBootOptionsToDevices",
    "DeleteUnmatchedUefiHddBootDevices",
    "CheckForNoAssociateOption",
    "CreateBootOptionsForNewBootDevices",
    "RemoveNonSupportedBootOptions",
    "SetGroupBootOrder",
    "VBootSetBootOptionTags",
    "EfiOsName_NormalizeBootOptions",
    "PreProcessBootOptions",
    "DeleteIdenticalBootOptions",
    "RemoveOrphanOptions",
    "SetBootOptionPriorities",
    "SetIpmiBootOptionPriorities",
    "InactivateLoadingPlaceholderOption",
    "PostProcessBootOptions",
    "ApplyOemBootOptionPolicy",
    "MaskOrphanDevices",
    "SaveLegacyDevOrder",
    "SetDefaultKuiBootOrder",
    "BuildBootOrderTable",
    "SaveBootOptions",
    "RemoveBootxxxx",
    "SaveEfiBootVaiablesToBMC",
    "CallTheDispatcher",
    "RecoverTheMemoryAbove4Gb",
    "PerformCapsuleVariableCleanup",
    "HandoffToKui",
    "ReadBootOptionAndBoot",
};

TEST(StepTable, NamesStandInTheirFixedOrder) {
  const std::vector<std::string> names(bds::kStepNames.begin(), bds::kStepNames.begin() + bds::kStepCount);
  EXPECT_THAT(names, ElementsAreArray(kExpected));
}

TEST(StepTable, BlanksAndANullEndTheNamesAndANullEndsTheSteps) {
  EXPECT_STREQ(bds::kStepNames[70], "    ");
  EXPECT_EQ(bds::kStepNames[71], nullptr);
  EXPECT_EQ(bds::kStepNames.size(), 72U);
  EXPECT_EQ(bds::kSteps.size(), 71U);
  EXPECT_EQ(bds::kSteps[70], nullptr);
}

TEST(StepTable, EveryStepIsAnotherRoutine) {
  const std::set<bds::StepFunction> distinct(bds::kSteps.begin(), bds::kSteps.begin() + bds::kStepCount);
  EXPECT_EQ(distinct.size(), 70U);
  EXPECT_FALSE(distinct.contains(nullptr));
}

TEST(StepTable, RoutinesStandBesideTheirNames) {
  const struct {
    UINTN Index;
    bds::StepFunction Routine;
  } cases[] = {{0, bds::SignalConnectDriversEvent},  {19, bds::RunDrivers},      {28, bds::UpdateBootOptionVariables},
               {42, bds::MatchBootOptionsToDevices}, {62, bds::SaveBootOptions}, {66, bds::RecoverTheMemoryAbove4Gb}};
  for (const auto& row : cases) {
    EXPECT_EQ(bds::kSteps[row.Index], row.Routine) << bds::kStepNames[row.Index];
  }
}

}  // namespace
