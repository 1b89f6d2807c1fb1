// Legacy option ROMs: what the CSM asks and tells the platform about them. Who drives a controller that has one is a
// matter of whole boots (tests/whole_boots/display_test.cpp).
#include <gmock/gmock.h>

#include "platform/csm_policy.h"
#include "sim/bus/device_set.h"
#include "sim/bus/option_rom.h"
#include "sim/csm/csm.h"
#include "sim/firmware/machine.h"

namespace sim {
namespace {

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
