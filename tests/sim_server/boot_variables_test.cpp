// Variables that a description gives: boot options of a new state, and those that the firmware says at each boot.
#include <gmock/gmock.h>

#include "sim/server/load_option_view.h"
#include "sim/server/server.h"

namespace sim {
namespace {

TEST(BootVariables, ComeFromTheDescription) {
  Server server(ParseServerDescription(R"TOML(
nvram = {boot_flow = 0x1001, secure_boot = true, option = [
  {number = 7, name = "seven", path = 'HD(1,GPT,4D9A3C11-0013-4000-8000-000000000004)/\a.efi'},
  {number = 3, name = "three", path = "PciRoot(0x0)/Pci(0x1,0x0)", active = false}]}
)TOML",
                                       "rack.toml", "."),
                {});
  const VariableStore& variables = server.Variables();
  const auto option = ParseLoadOption(variables.Find(u"Boot0007", gEfiGlobalVariableGuid)->data);
  ASSERT_TRUE(option);
  EXPECT_EQ(option->name, u"seven");
  EXPECT_TRUE(option->Active());
  ASSERT_EQ(option->paths.size(), 1u);
  EXPECT_THAT(DevicePathToUtf8(option->paths[0]), testing::EndsWith("/\\a.efi"));
  EXPECT_FALSE(ParseLoadOption(variables.Find(u"Boot0003", gEfiGlobalVariableGuid)->data)->Active());
  EXPECT_THAT(variables.Find(u"BootOrder", gEfiGlobalVariableGuid)->data,
              testing::ElementsAre(std::byte{7}, std::byte{0}, std::byte{3}, std::byte{0}));

  std::string log;
  for (int boot = 0; boot < 2; ++boot) {
    log = server.Boot({}).log;
    EXPECT_THAT(log, testing::HasSubstr("F12 requested")) << boot;
    EXPECT_THAT(variables.Find(u"SecureBoot", gEfiGlobalVariableGuid)->data, testing::ElementsAre(std::byte{1}));
  }
}

}  // namespace
}  // namespace sim
