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
using testing::IsEmpty;

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
  EFI_DRIVER_CONFIGURATION2_PROTOCOL& Configuration() {
    return *machine_.Handles().Get<EFI_DRIVER_CONFIGURATION2_PROTOCOL>(driver_->Handle());
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

TEST_F(ScriptedHealthTest, RepairAndOptionsAreCounted) {
  Add({0});
  EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED action = EfiDriverConfigurationActionMaximum;
  auto& configuration = Configuration();
  EXPECT_EQ(Health().Repair(&Health(), Controller(), nullptr, nullptr), EFI_SUCCESS);
  EXPECT_EQ(Health().Repair(&Health(), Controller(1), nullptr, nullptr), EFI_UNSUPPORTED);
  EXPECT_EQ(configuration.SetOptions(&configuration, Controller(), nullptr, "eng", &action), EFI_SUCCESS);
  EXPECT_EQ(action, EfiDriverConfigurationActionNone);
  EXPECT_EQ(configuration.SetOptions(&configuration, Controller(1), nullptr, "eng", &action), EFI_UNSUPPORTED);
  EXPECT_EQ(configuration.SetOptions(&configuration, Controller(), nullptr, nullptr, &action), EFI_INVALID_PARAMETER);
  EXPECT_EQ(machine_.Counts().Of("health.repair"), 1u);
  EXPECT_EQ(machine_.Counts().Of("health.set_options"), 1u);
}

TEST_F(ScriptedHealthTest, TheBrowserShowsFormsThatExist) {
  FormBrowser browser(machine_, hii_);
  Add({2});
  EFI_HII_HANDLE form = nullptr;
  ASSERT_EQ(Health().GetHealthStatus(&Health(), Controller(), nullptr, &status_, nullptr, &form), EFI_SUCCESS);
  void* found = nullptr;
  ASSERT_EQ(machine_.Handles().LocateProtocol(&ProtocolGuid<EFI_FORM_BROWSER2_PROTOCOL>, nullptr, &found), EFI_SUCCESS);
  auto* protocol = static_cast<EFI_FORM_BROWSER2_PROTOCOL*>(found);
  const auto send = [&](EFI_HII_HANDLE* handles, UINTN count) {
    return protocol->SendForm(protocol, handles, count, &gEfiDriverHealthFormsetGuid, 0, nullptr, nullptr);
  };
  auto unknown = reinterpret_cast<EFI_HII_HANDLE>(0x7777);
  EXPECT_EQ(send(&form, 1), EFI_SUCCESS);
  EXPECT_EQ(send(&unknown, 1), EFI_NOT_FOUND);
  EXPECT_EQ(send(nullptr, 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ(send(&form, 0), EFI_INVALID_PARAMETER);
  EXPECT_EQ(machine_.Counts().Of("form_browser.send_form"), 1u);
}

// Whole boots: what the driver under test does with one function's health.
struct HealthCase {
  const char* name;
  const char* statuses;
  bool checking;
  std::uint32_t vendor;
  std::uint64_t questions;
  std::uint64_t repairs;
  std::uint64_t forms;
  std::uint64_t options;
  BootEnd end;
};

class HealthBoot : public testing::TestWithParam<HealthCase> {};

TEST_P(HealthBoot, AsksAsOftenAsTheStatesCallFor) {
  const HealthCase& each = GetParam();
  const std::string text = std::string("[setup]\ndriver_health = ") + (each.checking ? "1" : "0") +
                           "\n[[root_bridge]]\n[[root_bridge.function]]\nkind = \"raid\"\ndevice = 5\nvendor_id = " +
                           std::to_string(each.vendor) + "\n[[driver_health]]\ndevice = 5\nmessage = \"look\"\n" +
                           "statuses = " + each.statuses + "\n";
  Server server(ParseServerDescription(text, "health.toml", "."), {});
  BootRequest request;
  std::vector<std::u16string> shown;
  request.afterEnd = [&](Machine& machine, const BootOutcome&) { shown = machine.Get<FrontEnd>()->Messages(); };
  // The first boot of a server ends in a reset once its boot variables are on the BMC.
  static_cast<void>(server.Boot({}));
  BootReport report = server.Boot(request);
  EXPECT_EQ(report.outcome.end, each.end) << report.outcome.text;
  EXPECT_EQ(report.counts["health.questions"], each.questions);
  EXPECT_EQ(report.counts["health.repair"], each.repairs);
  EXPECT_EQ(report.counts["form_browser.send_form"], each.forms);
  EXPECT_EQ(report.counts["health.set_options"], each.options);
  EXPECT_EQ(shown.empty(), !each.checking || std::string(each.statuses) == "[0]");
  EXPECT_TRUE(report.outcome.leaks.empty());
  EXPECT_THAT(report.complaints, IsEmpty());
}

constexpr std::uint32_t kIntel = 0x8086;
constexpr std::uint32_t kLsi = 0x1000;
INSTANTIATE_TEST_SUITE_P(
    States, HealthBoot,
    testing::Values(HealthCase{"Healthy", "[0]", true, kIntel, 1, 0, 0, 0, BootEnd::HandedOver},
                    HealthCase{"Failed", "[3]", true, kIntel, 1, 0, 0, 0, BootEnd::HandedOver},
                    HealthCase{"Repaired", "[1, 0]", true, kIntel, 2, 1, 0, 0, BootEnd::HandedOver},
                    HealthCase{"Configured", "[2, 0]", true, kIntel, 2, 0, 1, 0, BootEnd::HandedOver},
                    HealthCase{"RepairWithoutEnd", "[1]", true, kIntel, 8, 8, 0, 0, BootEnd::HandedOver},
                    HealthCase{"Reconnected", "[4]", true, kIntel, 1, 0, 0, 0, BootEnd::HandedOver},
                    HealthCase{"Reboot", "[5]", true, kIntel, 1, 0, 0, 0, BootEnd::Reset},
                    HealthCase{"NotChecked", "[1]", false, kIntel, 0, 0, 0, 0, BootEnd::HandedOver},
                    HealthCase{"RaidConfigured", "[2]", false, kLsi, 1, 0, 0, 1, BootEnd::HandedOver},
                    HealthCase{"RaidHealthy", "[0]", false, kLsi, 1, 0, 0, 0, BootEnd::HandedOver}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace sim
