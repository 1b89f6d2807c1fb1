// RAID health: what is logged, and when the defaults are applied.
#include "inventory/raid_health.h"

#include <gmock/gmock.h>

#include "tests/support/driver_fixture.h"
#include "tests/support/fake_health_driver.h"
#include "tests/support/fake_pci.h"

namespace {

constexpr char kEntry[] = "LsiUefiRequirementForHwraid().Entry\n";
constexpr char kFount[] = "LsiUefiRequirementForHwraid().Fount LSI Controller Vid:1000 Did:005D\n";
constexpr char kExit[] = "LsiUefiRequirementForHwraid().Exit\n";

class RaidHealthTest : public test::DriverTest {
 protected:
  void InstallController() { driver.Controller = Install(&controller.PciIo); }
  EFI_HANDLE InstallDriver(test::FakeHealthDriver& fake, bool configurable = true) {
    EFI_HANDLE handle = Install(&fake.Health);
    if (configurable) {
      EXPECT_EQ(machine.Install(handle, &fake.Config2.Protocol), EFI_SUCCESS);
    }
    return handle;
  }
  std::string Run() {
    bds::LsiUefiRequirementForHwraid();
    return Log();
  }

  test::FakePci controller{1, 4, 0x1000, 0x005D};
  test::FakeHealthDriver driver;
};

TEST_F(RaidHealthTest, NoDriverReportsHealth) {
  InstallController();
  EXPECT_EQ(Run(),
            std::string(kEntry) + "LsiUefiRequirementForHwraid().LocateHandleBuffer(Drvhealth) = EFI_NOT_FOUND\n");
}

TEST_F(RaidHealthTest, NoPciFunction) {
  InstallDriver(driver);
  EXPECT_EQ(Run(), std::string(kEntry) + "LsiUefiRequirementForHwraid().LocateHandleBuffer(PciIo) = EFI_NOT_FOUND\n");
}

TEST_F(RaidHealthTest, AConfigurationIsAppliedInEnglishAndOnce) {
  InstallController();
  driver.Answers = {EfiDriverHealthStatusConfigurationRequired};
  InstallDriver(driver);
  EXPECT_EQ(Run(), std::string(kEntry) + kFount + "LsiUefiRequirementForHwraid().HealthStatus = 2\n" +
                       "LsiUefiRequirementForHwraid().Dcp2->SetOptions = EFI_SUCCESS\n" + kExit);
  EXPECT_THAT(driver.Languages, testing::ElementsAre("eng"));
  EXPECT_EQ(driver.Questions, 1);
}

TEST_F(RaidHealthTest, ARefusedConfigurationIsLogged) {
  InstallController();
  driver.Answers = {EfiDriverHealthStatusConfigurationRequired};
  driver.SetOptionsStatus = EFI_DEVICE_ERROR;
  InstallDriver(driver);
  EXPECT_THAT(Run(), testing::HasSubstr("Dcp2->SetOptions = EFI_DEVICE_ERROR\n"));
}

TEST_F(RaidHealthTest, OtherStatesGetNoConfiguration) {
  InstallController();
  driver.Answers = {EfiDriverHealthStatusHealthy, EfiDriverHealthStatusRepairRequired, EfiDriverHealthStatusFailed,
                    EfiDriverHealthStatusReconnectRequired, EfiDriverHealthStatusRebootRequired};
  InstallDriver(driver);
  for (int i = 0; i < 5; ++i) {
    Run();
  }
  EXPECT_THAT(driver.Languages, testing::IsEmpty());
  EXPECT_EQ(driver.Questions, 5);
}

TEST_F(RaidHealthTest, AnotherDriversErrorIsLoggedAndSkipped) {
  InstallController();
  test::FakeHealthDriver stranger;
  stranger.Answers = {EfiDriverHealthStatusConfigurationRequired};
  InstallDriver(stranger);
  driver.Answers = {EfiDriverHealthStatusConfigurationRequired};
  InstallDriver(driver);
  EXPECT_EQ(Run(), std::string(kEntry) + kFount +
                       "LsiUefiRequirementForHwraid().GetHealthStatus = EFI_UNSUPPORTED  FormHandle = 0\n" +
                       "LsiUefiRequirementForHwraid().HealthStatus = 2\n" +
                       "LsiUefiRequirementForHwraid().Dcp2->SetOptions = EFI_SUCCESS\n" + kExit);
  EXPECT_THAT(stranger.Languages, testing::IsEmpty());
}

TEST_F(RaidHealthTest, ADriverThatCannotBeConfiguredIsNotAsked) {
  InstallController();
  driver.Answers = {EfiDriverHealthStatusConfigurationRequired};
  InstallDriver(driver, false);
  EXPECT_EQ(Run(), std::string(kEntry) + kFount +
                       "LsiUefiRequirementForHwraid().HandleProtocol(DCP2) = EFI_UNSUPPORTED\n" + kExit);
  EXPECT_EQ(driver.Questions, 0);
}

TEST_F(RaidHealthTest, OtherVendorsAndUnreadableFunctionsAreSkipped) {
  test::FakePci other(1, 4, 0x8086, 0x1000);
  test::FakePci unreadable(1, 4, 0x1000);
  unreadable.ConfigFails = true;
  driver.Controller = Install(&other.PciIo);
  Install(&unreadable.PciIo);
  driver.Answers = {EfiDriverHealthStatusConfigurationRequired};
  InstallDriver(driver);
  EXPECT_EQ(Run(), std::string(kEntry) + kExit);
}

}  // namespace
