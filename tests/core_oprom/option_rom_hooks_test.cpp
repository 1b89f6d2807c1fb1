// The CSM's hooks: the PCI check and the display taken over for a legacy video ROM.
#include "platform/graphics_output.h"
#include "platform/signals.h"
#include "support/event.h"
#include "tests/core_oprom/oprom_fixture.h"

namespace {

constexpr UINT64 kAllSupported = 0x0F3F;

class OptionRomHookTest : public test::OptionRomTest {
 protected:
  void SetUp() override {
    Start({1, 0, 0, 0, 2, 0});
    hookB = Located<CSM_POLICY_HOOK_B>();
    ASSERT_NE(hookB, nullptr);
    display.Supported = kAllSupported;
    controller = Install(&display.PciIo);
  }
  // The driver's opening of the controller on behalf of its child.
  void ShowPicture(EFI_HANDLE driver) {
    child = Install(&graphics);
    void* interface = nullptr;
    ASSERT_EQ(machine.Handles().OpenProtocol(controller, &ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &interface, driver, child,
                                             EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER),
              EFI_SUCCESS);
  }
  EFI_STATUS BeforeRom(UINT8 flag = 1) {
    context = {&display.PciIo, flag};
    return hookB->OptionRomHook(&context);
  }

  test::FakePci display{3, 0};
  EFI_GRAPHICS_OUTPUT_PROTOCOL graphics{};
  EFI_DRIVER_BINDING_PROTOCOL binding{};
  CSM_POLICY_HOOK_B* hookB = nullptr;
  CSM_OPTION_ROM_CONTEXT context{};
  EFI_HANDLE controller = nullptr;
  EFI_HANDLE child = nullptr;
};

TEST_F(OptionRomHookTest, AUefiDriverLosesTheDisplayAndDecodingIsEnabled) {
  ShowPicture(AddDriver(binding, false));
  EXPECT_EQ(BeforeRom(7), EFI_SUCCESS);
  EXPECT_EQ(context.Flag, 1);
  EXPECT_TRUE(bds::gCore.OptionRom.DisplayTakenOver);
  EXPECT_EQ(bds::gCore.OptionRom.Display, controller);
  EXPECT_EQ(display.Enabled, 0x700U);
}

TEST_F(OptionRomHookTest, AThunkDriverKeepsTheDisplay) {
  ShowPicture(AddDriver(binding, true));
  EXPECT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_TRUE(bds::gCore.OptionRom.DisplayTakenOver);
  EXPECT_EQ(display.Enabled, 0U);
}

TEST_F(OptionRomHookTest, ADisplayWithoutAPictureIsLeftAlone) {
  EXPECT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_FALSE(bds::gCore.OptionRom.DisplayTakenOver);
  EXPECT_EQ(display.Enabled, 0U);
}

TEST_F(OptionRomHookTest, OtherClassesAndIdleContextsAreLeftAlone) {
  ShowPicture(AddDriver(binding, false));
  EXPECT_EQ(BeforeRom(0), EFI_SUCCESS);
  EXPECT_EQ(context.Flag, 0);
  context = {nullptr, 1};
  EXPECT_EQ(hookB->OptionRomHook(&context), EFI_SUCCESS);
  display.Config[11] = 2;
  EXPECT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_EQ(context.Flag, 1);
  EXPECT_FALSE(bds::gCore.OptionRom.DisplayTakenOver);
}

TEST_F(OptionRomHookTest, WithoutAContextTheDisplayGoesBackUntilAllDriversAreConnected) {
  auto* hookA = Located<CSM_POLICY_HOOK_A>();
  ASSERT_NE(hookA, nullptr);
  EXPECT_EQ(hookA->Nothing(), EFI_SUCCESS);
  std::vector<EFI_HANDLE> connected;
  machine.Faults().SetCallHook([&](std::string_view service, std::uint64_t) -> std::optional<EFI_STATUS> {
    if (service == "ConnectController") {
      connected.push_back(controller);
      return EFI_SUCCESS;
    }
    return std::nullopt;
  });
  EXPECT_EQ(hookA->OptionRomHook(nullptr), EFI_SUCCESS);
  EXPECT_EQ(connected.size(), 0U) << "nothing was taken over";
  ShowPicture(AddDriver(binding, false));
  ASSERT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_EQ(hookA->OptionRomHook(nullptr), EFI_SUCCESS);
  EXPECT_EQ(connected.size(), 1U);
  ASSERT_EQ(bds::InstallNullProtocol(kAllDriversConnectedSignalGuid), EFI_SUCCESS);
  EXPECT_EQ(hookA->OptionRomHook(nullptr), EFI_SUCCESS);
  EXPECT_EQ(connected.size(), 1U);
}

TEST_F(OptionRomHookTest, ThePciCheckReadsTheClass) {
  EXPECT_EQ(hookB->CheckPci(hookB, controller), EFI_SUCCESS);
  EXPECT_EQ(hookB->CheckPci(hookB, image), EFI_UNSUPPORTED);
  display.ConfigFails = true;
  EXPECT_EQ(hookB->CheckPci(hookB, controller), EFI_DEVICE_ERROR);
}

}  // namespace
