// The management mode's queries, and the Setup variable's switch that follows a policy file.
#include "bmc/management_mode.h"

#include "bmc/steps.h"
#include "platform/setup_variable.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

class ManagementMode : public BmcFixture {};

TEST_F(ManagementMode, WithoutTheInterfaceTheServerIsStandalone) {
  bds::gBmc.ZephanConfigMode = 1;
  bds::DetectZephanConfigMode();
  EXPECT_EQ(bds::gBmc.ZephanConfigMode, 0);
  EXPECT_EQ(Log(), "UEFIBoot: fails to locate protocol using VEYRA_ZEPHAN_MODE_GUID. \n");
  EXPECT_EQ(bds::IsRackZephan(), 0);
  EXPECT_TRUE(Logged("IsRackZephan: fails to locate protocol using VEYRA_ZEPHAN_MODE_GUID. \n"));
}

TEST_F(ManagementMode, APolicyFileSwitchesEfiOptionsOnOnce) {
  const struct {
    std::uint8_t enable;
    bool file;
    std::uint8_t after;
    bool written;
  } cases[] = {{0, false, 0, false}, {0, true, 2, true},  {1, false, 1, true}, {1, true, 1, false},
               {2, false, 2, false}, {2, true, 2, false}, {3, true, 3, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << int{c.enable} << c.file);
    NextBoot();
    SetSetup({{kSetupEfiBootOptionsEnable, c.enable}, {3, 0x55}});
    files().Remove("ConfigPolicy.xml");
    if (c.file) {
      files().Write("ConfigPolicy.xml", {'<'});
    }
    const std::uint64_t writes = Count("SetVariable");
    const sim::Ticks start = clock().Now();
    bds::CheckZephan_EFIBootSupport();
    EXPECT_EQ(SetupByte(kSetupEfiBootOptionsEnable), c.after);
    EXPECT_EQ(SetupByte(3), 0x55);
    EXPECT_EQ(Count("SetVariable") - writes, c.written ? 1U : 0U);
    EXPECT_EQ(Logged("SetupData.EfiBootOptionsEnable:" + std::to_string(c.after) + "\n"), c.written);
    EXPECT_GE(clock().Now() - start, 200 * sim::kMillisecond);
    EXPECT_EQ(Logged("CheckZephan_EFIBootSupport:XML file open failed:2\n"), !c.file);
    std::uint32_t attributes = 0;
    ASSERT_TRUE(Variable(kSetupName, kSetupGuid, &attributes));
    EXPECT_EQ(attributes, kAttributes7);
    const auto& last = bmc().Interface().Trace().back();
    EXPECT_EQ(last.request[1], 9) << "closed whatever the open gave";
  }
}

TEST_F(ManagementMode, WithoutAReadableSetupNothingIsSwitched) {
  files().Write("ConfigPolicy.xml", {'<'});
  bds::CheckZephan_EFIBootSupport();
  EXPECT_TRUE(Logged("Error on Reading the Setup Variables:EFI_NOT_FOUND\n"));
  for (const std::size_t size : {160, 166, 167, 168}) {
    NextBoot();
    Bytes setup(size);
    SetVariable(kSetupName, kSetupGuid, kAttributes7, setup);
    bds::CheckZephan_EFIBootSupport();
    if (size == 166 || size == 167) {
      setup[kSetupEfiBootOptionsEnable] = 2;
    }
    EXPECT_EQ(Variable(kSetupName, kSetupGuid), setup) << "what a short one lacks counts as 0, and it stays short";
    EXPECT_EQ(Logged("Error on Reading the Setup Variables:EFI_BUFFER_TOO_SMALL\n"), size == 168);
  }
}

}  // namespace
}  // namespace test
