// Health that a description scripts, as the protocols answer it and as whole boots treat it.
#include "sim/server/scripted_health.h"

#include <gmock/gmock.h>

#include "platform/pci_io.h"
#include "sim/bus/device_set.h"
#include "sim/server/front_end.h"
#include "sim/server/server.h"

namespace sim {
namespace {

using testing::ElementsAre;

class ScriptedHealthTest : public testing::Test {
 protected:
  ScriptedHealthTest() {
    DeviceTree tree;
    tree.rootBridges.resize(2);
    for (std::uint32_t i = 0; i < 2; ++i) {
      tree.rootBridges[i].uid = i;
      tree.rootBridges[i].functions = {Display(2, 0, true), Isa(0x1F, 0)};
    }
    const auto& bridges = BuildDevices(machine_, std::move(tree), {.connected = true}).RootBridgeHandles();
    root_ = DevicePath::Copy(machine_.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(bridges[0]));
  }

  ScriptedHealth& Add(std::vector<std::uint32_t> statuses, const std::string& message = {}) {
    HealthDescription health;
    health.device = 2;
    health.statuses = std::move(statuses);
    health.message = message;
    driver_ = std::make_unique<ScriptedHealth>(machine_, health, root_, &hii_);
    return *driver_;
  }
  EFI_DRIVER_HEALTH_PROTOCOL& Health() {
    return *machine_.Handles().Get<EFI_DRIVER_HEALTH_PROTOCOL>(driver_->Handle());
  }
  EFI_STATUS Ask(EFI_HANDLE controller, EFI_HANDLE child = nullptr) {
    return Health().GetHealthStatus(&Health(), controller, child, &status_, nullptr, nullptr);
  }
  // The function's handle below one of the root bridges.
  EFI_HANDLE Controller(std::uint32_t bridge = 0, std::uint8_t device = 2) {
    const DevicePath wanted = DevicePath().Acpi(0x0A0341D0, bridge).Pci(device, 0);
    for (EFI_HANDLE handle : machine_.Handles().With(ProtocolGuid<EFI_PCI_IO_PROTOCOL>)) {
      if (DevicePath::Copy(machine_.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle)) == wanted) {
        return handle;
      }
    }
    return nullptr;
  }

  Machine machine_;
  HiiDatabase hii_;
  DevicePath root_;
  std::unique_ptr<ScriptedHealth> driver_;
  EFI_DRIVER_HEALTH_STATUS status_{};
};

TEST_F(ScriptedHealthTest, StatusesFollowOneAnotherAndTheLastStays) {
  Add({1, 4, 0});
  std::vector<std::uint32_t> seen;
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(Ask(Controller()), EFI_SUCCESS);
    seen.push_back(status_);
  }
  EXPECT_THAT(seen, ElementsAre(1, 4, 0, 0, 0));
}

TEST_F(ScriptedHealthTest, OnlyItsFunctionIsAnsweredFor) {
  Add({3, 0});
  ASSERT_NE(Controller(1), nullptr);
  ASSERT_NE(Controller(0, 0x1F), nullptr);
  EXPECT_EQ(Ask(Controller(1)), EFI_UNSUPPORTED) << "the same place below another root bridge";
  EXPECT_EQ(Ask(Controller(0, 0x1F)), EFI_UNSUPPORTED) << "another function";
  EXPECT_EQ(Ask(driver_->Handle()), EFI_UNSUPPORTED) << "no PCI function";
  EXPECT_EQ(Ask(Controller(), Controller(1)), EFI_UNSUPPORTED) << "a child";
  EXPECT_EQ(Health().GetHealthStatus(&Health(), Controller(), nullptr, nullptr, nullptr, nullptr),
            EFI_INVALID_PARAMETER);
  EXPECT_EQ(Ask(Controller()), EFI_SUCCESS);
  EXPECT_EQ(status_, EfiDriverHealthStatusFailed) << "the refused questions took no answer away";
  EXPECT_EQ(Ask(nullptr), EFI_SUCCESS) << "no controller: all of them together";
}

TEST_F(ScriptedHealthTest, AMessageIsAStringOfTheDatabase) {
  Add({3}, "Fan 2 failed \xE2\x80\x93 replace it");
  EFI_DRIVER_HEALTH_HII_MESSAGE* messages = nullptr;
  EFI_HII_HANDLE form = nullptr;
  ASSERT_EQ(Health().GetHealthStatus(&Health(), Controller(), nullptr, &status_, &messages, &form), EFI_SUCCESS);
  ASSERT_NE(messages, nullptr);
  EXPECT_EQ(messages[0].HiiHandle, form);
  EXPECT_EQ(messages[1].HiiHandle, nullptr);
  std::u16string text;
  EXPECT_EQ(hii_.Find(messages[0].HiiHandle, "en-US", messages[0].StringId, text), EFI_SUCCESS);
  EXPECT_EQ(text, u"Fan 2 failed \u2013 replace it");
  EXPECT_EQ(machine_.BootServices()->FreePool(messages), EFI_SUCCESS);

  Add({3});
  messages = reinterpret_cast<EFI_DRIVER_HEALTH_HII_MESSAGE*>(1);
  ASSERT_EQ(Health().GetHealthStatus(&Health(), Controller(), nullptr, &status_, &messages, nullptr), EFI_SUCCESS);
  EXPECT_EQ(messages, nullptr);
}

}  // namespace
}  // namespace sim
