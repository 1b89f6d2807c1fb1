// The handoff: variables that the order does not name, and a firmware without an end of them.
#include <gmock/gmock.h>

#include "core/steps.h"
#include "sim/firmware/services/text_services.h"
#include "tests/support/driver_fixture.h"

namespace {

using testing::HasSubstr;

constexpr EFI_GUID kOtherVendor{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

class HandoffTest : public test::DriverTest {
 protected:
  void SetUp() override { ASSERT_EQ(text.Install(), EFI_SUCCESS); }
  test::Data Option(const char16_t* name) {
    return test::LoadOption(LOAD_OPTION_ACTIVE, name, sim::DevicePath().Acpi(0x0A0341D0).File(u"\\x.efi"));
  }
  sim::TextServices text{machine.BootServices()};
};

TEST_F(HandoffTest, OptionsOutsideTheOrderAreReported) {
  Set(u"BootOrder", test::Numbers({1}));
  Set(u"Boot0001", Option(u"in order"));
  Set(u"Boot0002", Option(u"forgotten"));
  Set(u"BOOT00fE", Option(u"odd case"));
  Set(u"boot0001", Option(u"same number"));
  const struct {
    const char16_t* Name;
    EFI_GUID Vendor;
  } others[] = {{u"Boot000G", gEfiGlobalVariableGuid},
                {u"Boot00001", gEfiGlobalVariableGuid},
                {u"Boot001", gEfiGlobalVariableGuid},
                {u"BootNext", gEfiGlobalVariableGuid},
                {u"AVariableWithANameOfMoreThanFortyCharacters", kOtherVendor},
                {u"Driver01", kOtherVendor}};
  for (const auto& row : others) {
    Set(row.Name, test::DataOf({1, 2}), 7, row.Vendor);
  }
  static_cast<void>(bds::HandoffToKui());
  std::size_t reports = 0;
  for (std::size_t at = 0; (at = Log().find("is not in the boot order", at)) != std::string::npos; ++at) {
    ++reports;
  }
  EXPECT_EQ(reports, 2U) << Log();
  EXPECT_THAT(Log(), HasSubstr("!!!!!!!Boot0002 is not in the boot order!!!!!!!\n"));
  EXPECT_THAT(Log(), HasSubstr("!!!!!!!BOOT00fE is not in the boot order!!!!!!!\n"));
}

TEST_F(HandoffTest, AFirmwareWithoutAnEndOfNamesDoesNotHoldTheBoot) {
  Set(u"BootOrder", test::Numbers({1}));
  machine.Faults().FailCall("GetNextVariableName", 1, EFI_SUCCESS, 10'000'000);
  static_cast<void>(bds::HandoffToKui());
  EXPECT_EQ(machine.Counts().Of("GetNextVariableName"), 65536U);
}

}  // namespace
