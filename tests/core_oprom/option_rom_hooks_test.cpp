// The CSM's hooks: the PCI check and the display taken over for a legacy video ROM.
#include <gmock/gmock.h>

#include "platform/graphics_output.h"
#include "platform/signals.h"
#include "support/event.h"
#include "tests/core_connect/connect_recorder.h"
#include "tests/core_oprom/oprom_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
    ShowPictureOn(controller, child, driver);
  }
  void ShowPictureOn(EFI_HANDLE on, EFI_HANDLE picture, EFI_HANDLE driver) {
    void* interface = nullptr;
    ASSERT_EQ(machine.Handles().OpenProtocol(on, &ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &interface, driver, picture,
                                             EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER),
              EFI_SUCCESS);
  }
  static std::vector<EFI_HANDLE> TakenOver() {
    return std::vector<EFI_HANDLE>(bds::gOptionRom.Displays.begin(), bds::gOptionRom.Displays.end());
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
  EXPECT_THAT(TakenOver(), ElementsAre(controller));
  EXPECT_EQ(display.Enabled, 0x700U);
}

TEST_F(OptionRomHookTest, AThunkDriverKeepsTheDisplay) {
  ShowPicture(AddDriver(binding, true));
  EXPECT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_THAT(TakenOver(), ElementsAre(controller));
  EXPECT_EQ(display.Enabled, 0U);
}

TEST_F(OptionRomHookTest, ADisplayWithoutAPictureIsLeftAlone) {
  EXPECT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_THAT(TakenOver(), IsEmpty());
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
  EXPECT_THAT(TakenOver(), IsEmpty());
}

// Two displays with a picture and one without: those two go back, as often as asked, until all drivers are connected.
TEST_F(OptionRomHookTest, WithoutAContextEachDisplayTakenGoesBackUntilAllDriversAreConnected) {
  auto* hookA = Located<CSM_POLICY_HOOK_A>();
  ASSERT_NE(hookA, nullptr);
  test::ConnectRecorder recorder(machine.BootServices());
  EXPECT_EQ(hookA->OptionRomHook(nullptr), EFI_SUCCESS);
  EXPECT_THAT(recorder.Connected(), IsEmpty()) << "nothing was taken over";
  ShowPicture(AddDriver(binding, false));
  ASSERT_EQ(BeforeRom(), EFI_SUCCESS);
  test::FakePci second{3, 0};
  EFI_HANDLE other = Install(&second.PciIo);
  EFI_GRAPHICS_OUTPUT_PROTOCOL otherGraphics{};
  EFI_DRIVER_BINDING_PROTOCOL otherBinding{};
  ShowPictureOn(other, Install(&otherGraphics), AddDriver(otherBinding, false));
  test::FakePci computing{3, 2};
  Install(&computing.PciIo);
  for (test::FakePci* each : {&second, &computing, &second}) {
    context = {&each->PciIo, 1};
    ASSERT_EQ(hookB->OptionRomHook(&context), EFI_SUCCESS);
  }
  EXPECT_EQ(hookA->OptionRomHook(nullptr), EFI_SUCCESS);
  EXPECT_THAT(recorder.Connected(), ElementsAre(controller, other));
  ASSERT_EQ(bds::InstallNullProtocol(kAllDriversConnectedSignalGuid), EFI_SUCCESS);
  EXPECT_EQ(hookA->OptionRomHook(nullptr), EFI_SUCCESS);
  EXPECT_EQ(recorder.Connected().size(), 2U);
}

TEST_F(OptionRomHookTest, ADisplayThatCannotBeRememberedIsNotTaken) {
  ShowPicture(AddDriver(binding, false));
  machine.Faults().FailCall("AllocatePool", 1, EFI_OUT_OF_RESOURCES, 1000);
  EXPECT_EQ(BeforeRom(), EFI_SUCCESS);
  EXPECT_EQ(display.Enabled, 0U);
  EXPECT_THAT(TakenOver(), IsEmpty());
}

TEST_F(OptionRomHookTest, ThePciCheckReadsTheClass) {
  EXPECT_EQ(hookB->CheckPci(hookB, controller), EFI_SUCCESS);
  EXPECT_EQ(hookB->CheckPci(hookB, image), EFI_UNSUPPORTED);
  display.ConfigFails = true;
  EXPECT_EQ(hookB->CheckPci(hookB, controller), EFI_DEVICE_ERROR);
}

}  // namespace
