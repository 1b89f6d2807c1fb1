// What a description says arrives, and what it does not say has its documented default.
#include "sim/server/description.h"

#include <gtest/gtest.h>

#include "platform/setup_variable.h"

namespace sim {
namespace {

ServerDescription Parse(std::string_view text) { return ParseServerDescription(text, "rack.toml", "."); }

TEST(Description, AnEmptyFileIsAServerWithItsDefaults) {
  const ServerDescription server = Parse("");
  EXPECT_EQ(server.name, "server");
  EXPECT_TRUE(server.devices.rootBridges.empty());
  EXPECT_FALSE(server.csm.present);
  EXPECT_TRUE(server.usbSupport);
  EXPECT_EQ(server.frontEnd, FrontEndKind::Returns);
  EXPECT_EQ(server.ipmi, "builtin");
  EXPECT_TRUE(server.bmcFiles);
  EXPECT_TRUE(server.managementModePresent);
  EXPECT_EQ(server.managementMode, 0);
  EXPECT_TRUE(server.firmware.shellPresent);
  EXPECT_EQ(server.nvram.size, 262144u);
  EXPECT_EQ(server.nvram.maximumVariable, 65536u);
  EXPECT_FALSE(server.nvram.bootMode);
  ASSERT_TRUE(server.nvram.setup);
  EXPECT_EQ((*server.nvram.setup)[kSetupUefiMode], 1);
}

TEST(Description, SetupBytesStandWhereTheRecordHasThem) {
  const ServerDescription server = Parse(
      "[setup]\ndriver_health = 1\nstrict_group_order = 2\nefi_boot_options = 3\nuefi_mode = 0\nstbu_mode = 5\n"
      "option_rom_policy = [9, 8, 7, 6, 5, 4]\n");
  const std::vector<std::uint8_t>& setup = *server.nvram.setup;
  EXPECT_EQ(setup[1], 1);
  EXPECT_EQ(setup[157], 2);
  EXPECT_EQ(setup[160], 3);
  EXPECT_EQ(setup[161], 0);
  EXPECT_EQ(setup[163], 5);
  EXPECT_EQ(std::vector<std::uint8_t>(setup.begin() + 130, setup.begin() + 136),
            (std::vector<std::uint8_t>{9, 8, 7, 6, 5, 4}));
  EXPECT_FALSE(Parse("[setup]\npresent = false\n").nvram.setup);
}

TEST(Description, ACsmIsThereWhenItsTableIs) {
  EXPECT_TRUE(Parse("[csm]\n").csm.present);
  EXPECT_FALSE(Parse("[csm]\npresent = false\n").csm.present);
  const auto csm =
      Parse("[[csm.entry]]\nindex = 40\ntype = 3\ndescription = \"DVD\"\ndescription_pointer = 0xF0001234\n").csm;
  ASSERT_EQ(csm.entries.size(), 1u);
  EXPECT_EQ(csm.entries[0].index, 40);
  EXPECT_EQ(csm.entries[0].deviceType, 3);
  EXPECT_EQ(csm.entries[0].bootPriority, 0xFFFE);
  EXPECT_EQ(csm.entries[0].descriptionPointer, 0xF0001234u);
}

TEST(Description, FunctionsHaveTheClassOfTheirKindUnlessToldOtherwise) {
  const auto tree =
      Parse(
          "[[root_bridge]]\nexpress = true\n"
          "[[root_bridge.function]]\nkind = \"nvme\"\ndevice = 3\n[[root_bridge.function.namespace]]\nid = 2\n"
          "[[root_bridge.function]]\nkind = \"raid\"\ndevice = 4\nclass_code = 0x010700\n"
          "[[root_bridge.function]]\nkind = \"bridge\"\ndevice = 5\n[[root_bridge.function.function]]\nkind = "
          "\"network\"\n"
          "device = 0\nmac = \"02:00:00:00:00:aB\"\n")
          .devices;
  ASSERT_EQ(tree.rootBridges.size(), 1u);
  EXPECT_TRUE(tree.rootBridges[0].express);
  const auto& functions = tree.rootBridges[0].functions;
  ASSERT_EQ(functions.size(), 3u);
  EXPECT_EQ(functions[0].classCode, 0x010802u);
  EXPECT_EQ(std::get<NvmeController>(functions[0].controller).namespaces.at(0).id, 2u);
  EXPECT_EQ(functions[1].classCode, 0x010700u);
  const auto& behind = std::get<PciBridge>(functions[2].controller).functions;
  ASSERT_EQ(behind.size(), 1u);
  EXPECT_EQ(std::get<NetworkController>(behind[0].controller).ports.at(0).mac[5], 0xAB);
}

TEST(Description, UsbHubsNest) {
  const auto tree =
      Parse(
          "[[root_bridge]]\n[[root_bridge.function]]\nkind = \"xhci\"\ndevice = 1\n[[root_bridge.function.usb]]\n"
          "kind = \"hub\"\nport = 1\n[[root_bridge.function.usb.usb]]\nport = 2\nmodel = \"Stick\"\n")
          .devices;
  const auto& host = std::get<UsbHostController>(tree.rootBridges[0].functions[0].controller);
  ASSERT_EQ(host.devices.at(0).kind, UsbKind::Hub);
  ASSERT_EQ(host.devices[0].devices.size(), 1u);
  EXPECT_EQ(host.devices[0].devices[0].product, "Stick");
  ASSERT_EQ(host.devices[0].devices[0].units.size(), 1u);
  EXPECT_TRUE(host.devices[0].devices[0].units[0].removable);
}

}  // namespace
}  // namespace sim
