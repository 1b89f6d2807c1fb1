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

}  // namespace
}  // namespace sim
