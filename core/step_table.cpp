// One line per step, in the order in which they run, with its purpose: the array of functions, the array of names and
// docs/steps.md are made from it. A step's name is its routine's own, so that the two cannot drift apart.
#include "core/step_table.h"

#include <type_traits>

#include "bmc/steps.h"
#include "bootopt/steps.h"
#include "core/steps.h"
#include "flexboot/steps.h"
#include "inventory/mac_inventory.h"
#include "inventory/raid_health.h"
#include "osopt/steps.h"
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

// Where the name of the template argument stands in the text of a routine's signature: behind the last colon, and
// before the bracket that closes it ("... [with auto Routine = bds::Name]").
struct NamePlace {
  UINTN Start;
  UINTN Length;
};
consteval NamePlace FindName(const char* signature) {
  UINTN start = 0;
  UINTN end = 0;
  for (UINTN i = 0; signature[i] != '\0'; ++i) {
    start = signature[i] == ':' ? i + 1 : start;
    end = signature[i] == ']' ? i : end;
  }
  return {start, end - start};
}

// The routine's name as a NUL-terminated text.
template <auto Routine>
consteval auto NameOf() {
  constexpr const char* kSignature = __PRETTY_FUNCTION__;
  constexpr NamePlace kPlace = FindName(kSignature);
  std::array<char, kPlace.Length + 1> name{};
  for (UINTN i = 0; i < kPlace.Length; ++i) {
    name[i] = kSignature[kPlace.Start + i];
  }
  return name;
}
template <auto Routine>
constexpr auto kNameOf = NameOf<Routine>();

template <auto Routine>
consteval StepRow Row() {
  return {Step<Routine>(), kNameOf<Routine>.data()};
}

// clang-format off
constexpr StepRow kRows[] = {
    Row<SignalConnectDriversEvent>(),                    // tells the platform that connecting begins
    Row<PciOptionRomControlLibInitialize>(),             // nothing; keeps its place in the table
    Row<SignalCompletePowerManagementProtocolEvent>(),   // tells the platform that power management is complete
    Row<ConnectRootBridgeHandlesBeforeEndOfDxe>(),       // the PCI root bridges, before firmware locks down
    Row<SignalEndOfDxe>(),                               // end of DXE, SMM lock; remembers the firmware volumes
    Row<ConnectRootBridgeHandles>(),                     // the PCI root bridges once more
    Row<RegisterMemoryTypeInformationUpdateCallback>(),  // memory set aside for the next boot
    Row<ReportConnectConOutProgressCode>(),              // progress code: console output
    Row<ConnectVgaConOut>(),                             // displays, add-in cards before onboard ones
    Row<ConnectConOutVariable>(),                        // the paths of ConOut
    Row<InstallConOutStartedProtocol>(),                 // marks console output as started
    Row<ReportConnectConInProgressCode>(),               // progress code: console input
    Row<ConnectPs2ConIn>(),                              // PS/2 keyboard and mouse, serial ports
    Row<ConnectUsbConIn>(),                              // USB host controllers
    Row<ConnectConInVariable>(),                         // the paths of ConIn
    Row<InstallConInStartedProtocol>(),                  // marks console input as started
    Row<ConInAvailabilityBeep>(),                        // progress code: keys are read
    Row<WaitForUserInput>(),                             // a pause of 3 s
    Row<ConnectEverything>(),                            // every driver on every controller
    Row<RunDrivers>(),                                   // the Driver#### options of DriverOrder
    Row<InitConVars>(),                                  // ConOut, ConIn and ErrOut from what was found
    Row<ShadowAllLegacyOptionRoms>(),                    // the CSM shadows the legacy option ROMs
    Row<MACAddressInfoInitialize>(),                     // MAC addresses of network adapters
    Row<SignalAllDriversConnectedEvent>(),               // tells the platform that all drivers are connected
    Row<CheckDriverHealth>(),                            // repairs, configures and reconnects unhealthy controllers
    Row<LsiUefiRequirementForHwraid>(),                  // the health of RAID controllers
    Row<SignalExitPmAuthProtocolEvent>(),                // tells the platform that management is left
    Row<InstallFwLoadFileProtocol>(),                    // applications in firmware volumes, as the shell
    Row<UpdateBootOptionVariables>(),                    // the driver's strings; empties both lists
    Row<RestoreEfiBootVariablesFromBMC>(),               // boot variables that NVRAM lost, from the BMC
    Row<RestoreBootorder>(),                             // undoes a one-time boot that the BMC asked for
    Row<BootOrderTableEntryPoint>(),                     // the boot policy and the boot order table from the BMC
    Row<DetectZephanConfigMode>(),                       // whether a central manager runs this server
    Row<CheckZephan_EFIBootSupport>(),                   // UEFI boot options while a central manager does
    Row<AdjustEfiOsBootOrder>(),                         // takes options with the same loader out of BootOrder
    Row<ReadBootOptions>(),                              // the option list from BootOrder and Boot####
    Row<UnmaskOrphanDevices>(),                          // takes the orphan mask off the options' paths
    Row<CollectUsbBbsDevices>(),                         // the CSM's USB devices
    Row<CollectBootDevices>(),                           // the device list from protocols and the BBS table
    Row<GenerateUefiPolicyOptionsEntry>(),               // options for the loaders that a boot policy names
    Row<FilterBootDeviceList>(),                         // drops devices that must not be booted
    Row<CreateEfiOsBootOption>(),                        // STBU mode: options for OS loaders on fixed disks
    Row<MatchBootOptionsToDevices>(),                    // binds options to devices
    Row<DeleteUnmatchedUefiHddBootDevices>(),            // drops UEFI disks without an option
    Row<CheckForNoAssociateOption>(),                    // placeholders for devices that only the BMC names
    Row<CreateBootOptionsForNewBootDevices>(),           // an option for each new device
    Row<RemoveNonSupportedBootOptions>(),                // options that the boot mode does not support
    Row<SetGroupBootOrder>(),                            // the BMC's order of groups
    Row<VBootSetBootOptionTags>(),                       // tags by the boot policy; default tags without one
    Row<EfiOsName_NormalizeBootOptions>(),               // paths and names of the firmware's own options
    Row<PreProcessBootOptions>(),                        // deletes the driver's own options without a device
    Row<DeleteIdenticalBootOptions>(),                   // duplicate options
    Row<RemoveOrphanOptions>(),                          // managed or STBU mode: deletes all without a device
    Row<SetBootOptionPriorities>(),                      // sorts by tag, numbers, sets priorities
    Row<SetIpmiBootOptionPriorities>(),                  // the boot device that the BMC asks for
    Row<InactivateLoadingPlaceholderOption>(),           // place-holder options
    Row<PostProcessBootOptions>(),                       // sorts by tag; deletes group headers without members
    Row<ApplyOemBootOptionPolicy>(),                     // hides UEFI disks' options without a device
    Row<MaskOrphanDevices>(),                            // masks the paths of options without a device
    Row<SaveLegacyDevOrder>(),                           // writes LegacyDevOrder
    Row<SetDefaultKuiBootOrder>(),                       // the default order of the setup front end
    Row<BuildBootOrderTable>(),                          // the boot order table for the BMC
    Row<SaveBootOptions>(),                              // writes Boot#### and BootOrder
    Row<RemoveBootxxxx>(),                               // stale Boot#### variables
    Row<SaveEfiBootVaiablesToBMC>(),                     // copies the boot variables to the BMC
    Row<CallTheDispatcher>(),                            // the DXE core dispatches once more
    Row<RecoverTheMemoryAbove4Gb>(),                     // turns untested memory into usable memory
    Row<PerformCapsuleVariableCleanup>(),                // deletes the capsule variables
    Row<HandoffToKui>(),                                 // logs the options, then the setup front end boots
    Row<ReadBootOptionAndBoot>(),                        // boots BootOrder when the front end returned
};
// clang-format on
static_assert(std::size(kRows) == kStepCount);
static_assert(kNameOf<SignalEndOfDxe> == std::to_array("SignalEndOfDxe"));

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
