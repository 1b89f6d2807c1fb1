// Legacy option ROMs: who drives a controller that has one, by the platform's policy, and what happens to the display
// when the CSM runs them.
#include <gmock/gmock.h>

#include "platform/csm_policy.h"
#include "platform/graphics_output.h"
#include "platform/network_interface_identifier.h"
#include "platform/pci_io.h"
#include "sim/bus/device_set.h"
#include "sim/bus/option_rom.h"
#include "sim/csm/csm.h"
#include "sim/firmware/machine.h"
#include "sim/server/server.h"

namespace sim {
namespace {

using testing::IsEmpty;

constexpr char kServer[] = R"(
[csm]
[[root_bridge]]
[[root_bridge.function]]
kind = "vga"
device = 2
legacy_rom = true
[[root_bridge.function]]
kind = "network"
device = 3
mac = "02:00:00:00:00:01"
legacy_rom = true
[[root_bridge.function]]
kind = "ehci"
device = 4
legacy_rom = true
)";

// Whose driver holds the function: "thunk", "native" or "none".
std::string DriverOf(Machine& machine, std::uint8_t wanted) {
  for (const EFI_HANDLE handle : machine.Handles().With(ProtocolGuid<EFI_PCI_IO_PROTOCOL>)) {
    auto* pci = machine.Handles().Get<EFI_PCI_IO_PROTOCOL>(handle);
    UINTN segment = 0;
    UINTN bus = 0;
    UINTN device = 0;
    UINTN function = 0;
    static_cast<void>(pci->GetLocation(pci, &segment, &bus, &device, &function));
    if (device != wanted) {
      continue;
    }
    for (const auto& interface : *machine.Handles().InterfacesOf(handle)) {
      for (const auto& open : interface.opens) {
        if ((open.attributes & EFI_OPEN_PROTOCOL_BY_DRIVER) != 0) {
          const auto* mark = machine.Handles().InterfacesOf(open.agent);
          const bool thunk = std::any_of(mark->begin(), mark->end(),
                                         [](const auto& item) { return item.guid == kThunkDriverMarkGuid; });
          return thunk ? "thunk" : "native";
        }
      }
    }
  }
  return "none";
}

struct PolicyCase {
  const char* name;
  const char* policy;  // switch, network, serial bus, storage, display, other
  const char* display;
  const char* network;
};

class OptionRomBoot : public testing::TestWithParam<PolicyCase> {};

TEST_P(OptionRomBoot, ThePolicyDecidesWhoDrives) {
  const PolicyCase& each = GetParam();
  const std::string text = std::string("[setup]\noption_rom_policy = ") + each.policy + "\n" + kServer;
  Server server(ParseServerDescription(text, "rom.toml", "."), {});
  BootRequest request;
  std::string display;
  std::string network;
  std::string serialBus;
  std::size_t screens = 0;
  std::size_t run = 0;
  request.afterEnd = [&](Machine& machine, const BootOutcome&) {
    display = DriverOf(machine, 2);
    network = DriverOf(machine, 3);
    serialBus = DriverOf(machine, 4);
    screens = machine.Handles().With(ProtocolGuid<EFI_GRAPHICS_OUTPUT_PROTOCOL>).size();
    run = machine.Get<Csm>()->OptionRomsRun();
  };
  // The first boot of a server ends in a reset once its boot variables are on the BMC.
  static_cast<void>(server.Boot({}));
  const BootReport report = server.Boot(request);
  EXPECT_TRUE(report.Started()) << report.outcome.text;
  EXPECT_EQ(display, each.display);
  EXPECT_EQ(network, each.network);
  EXPECT_EQ(serialBus, "native") << "no policy for this class, and no thunk";
  EXPECT_EQ(screens, 1u) << "a picture in any case";
  EXPECT_EQ(run, 3u) << "each ROM once, however often they are shadowed";
  EXPECT_TRUE(report.outcome.leaks.empty());
  EXPECT_THAT(report.complaints, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Policies, OptionRomBoot,
                         testing::Values(PolicyCase{"Legacy", "[0, 2, 2, 2, 2, 2]", "thunk", "thunk"},
                                         PolicyCase{"Uefi", "[0, 1, 1, 1, 1, 1]", "native", "native"},
                                         PolicyCase{"NoOverride", "[0, 0, 0, 0, 0, 0]", "native", "native"},
                                         PolicyCase{"LegacyVideoOnly", "[0, 1, 1, 1, 3, 1]", "thunk", "native"}),
                         [](const auto& tested) { return std::string(tested.param.name); });

// The platform's hooks, recorded.
struct Hooks {
  CSM_POLICY_HOOK_A a{Nothing, Hook};
  CSM_POLICY_HOOK_B b{Check, Hook};
  static inline std::vector<std::string> calls;
  static inline EFI_STATUS checkStatus = EFI_SUCCESS;

  static EFI_STATUS EFIAPI Nothing() { return EFI_SUCCESS; }
  static EFI_STATUS EFIAPI Hook(CSM_OPTION_ROM_CONTEXT* context) {
    calls.push_back(context == nullptr ? "done" : context->PciIo != nullptr && context->Flag != 0 ? "rom" : "bad");
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI Check(CSM_POLICY_HOOK_B*, EFI_HANDLE) {
    calls.push_back("check");
    return checkStatus;
  }
};

class CsmHooks : public testing::Test {
 protected:
  CsmHooks() {
    Hooks::calls.clear();
    Hooks::checkStatus = EFI_SUCCESS;
    DeviceTree tree;
    tree.rootBridges.resize(1);
    tree.rootBridges[0].functions = {Display(2, 0, true), Isa(0x1F, 0)};
    tree.rootBridges[0].functions[0].optionRom = LegacyOptionRom(0x8086, 1, 0x030000);
    BuildDevices(machine_, std::move(tree), {.connected = true});
    csm_ = &machine_.Attach<Csm>(CsmDescription{});
  }
  void Shadow() {
    void* found = nullptr;
    ASSERT_EQ(machine_.Handles().LocateProtocol(&ProtocolGuid<EFI_LEGACY_BIOS_PROTOCOL>, nullptr, &found), EFI_SUCCESS);
    auto* bios = static_cast<EFI_LEGACY_BIOS_PROTOCOL*>(found);
    EXPECT_EQ(bios->ShadowAllLegacyOproms(bios), EFI_SUCCESS);
  }
  template <typename Hook>
  void Install(Hook& hook) {
    EFI_HANDLE handle = nullptr;
    ASSERT_EQ(machine_.Install(handle, &hook), EFI_SUCCESS);
  }

  Machine machine_;
  Csm* csm_ = nullptr;
  Hooks hooks_;
};

TEST_F(CsmHooks, AreAskedForEachRomOnce) {
  Install(hooks_.a);
  Install(hooks_.b);
  Shadow();
  Shadow();
  EXPECT_THAT(Hooks::calls, testing::ElementsAre("check", "rom", "done"));
  EXPECT_EQ(csm_->OptionRomsRun(), 1u);
}

TEST_F(CsmHooks, TheFirstHookAloneIsEnough) {
  Install(hooks_.a);
  Shadow();
  EXPECT_THAT(Hooks::calls, testing::ElementsAre("rom", "done"));
}

TEST_F(CsmHooks, ARefusedRomIsNotRun) {
  Install(hooks_.b);
  Hooks::checkStatus = EFI_DEVICE_ERROR;
  Shadow();
  EXPECT_THAT(Hooks::calls, testing::ElementsAre("check"));
  EXPECT_EQ(csm_->OptionRomsRun(), 0u);
}

TEST_F(CsmHooks, WithoutAPlatformTheRomsRun) {
  Shadow();
  EXPECT_EQ(csm_->OptionRomsRun(), 1u);
}

}  // namespace
}  // namespace sim
