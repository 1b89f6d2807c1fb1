// Memory type information: when the update is registered, what it writes, and when it resets.
#include "platform/memory_type_information.h"

#include <gmock/gmock.h>

#include "core/steps.h"
#include "platform/signals.h"
#include "sim/firmware/services/hob_list.h"
#include "support/event.h"
#include "tests/support/driver_fixture.h"

namespace {

using List = std::vector<EFI_MEMORY_TYPE_INFORMATION>;

test::Data BytesOf(List list) {
  list.push_back({EfiMaxMemoryType, 0});
  const auto bytes = std::as_bytes(std::span(list));
  return {bytes.begin(), bytes.end()};
}

class MemoryTypeTest : public test::DriverTest {
 protected:
  // The boot's list, what it used, and the registration.
  void Boot(const List& list, List used, EFI_BOOT_MODE mode = BOOT_WITH_FULL_CONFIGURATION) {
    hobs.emplace(mode);
    ASSERT_TRUE(hobs->AddMemoryTypeInformation(list));
    Register(std::move(used));
  }
  // The same with the list of hand-off blocks as it stands.
  void Register(List used) {
    table = std::move(used);
    table.push_back({EfiMaxMemoryType, 0});
    machine.InstallConfigurationTable(gEfiHobListGuid, const_cast<void*>(hobs->Build()));
    machine.InstallConfigurationTable(gEfiMemoryTypeInformationGuid, table.data());
    bds::InitializeServices(image, machine.SystemTable());
    bds::gCore.MemoryTypesUpdated = FALSE;
    bds::RegisterMemoryTypeInformationUpdateCallback();
  }
  // A reset leaves the machine in the middle of a notification; the next boot's begins at the usual priority.
  sim::BootOutcome Start() {
    const auto outcome = machine.Run([] { return bds::InstallNullProtocol(kBootStartSignalGuid); });
    machine.Events().Restore(TPL_APPLICATION);
    EXPECT_TRUE(bds::gCore.MemoryTypesUpdated || !expectsWork);
    return outcome;
  }
  const sim::Variable* Previous() { return Find(kPreviousMemoryTypeInformationName, gEfiMemoryTypeInformationGuid); }

  std::optional<sim::HobList> hobs;
  List table;
  bool expectsWork = true;
};

TEST_F(MemoryTypeTest, GrowthIsAQuarterMoreAndResetsOnTheFirstBootOnly) {
  const List list = {{EfiRuntimeServicesData, 100}, {EfiBootServicesData, 1000}};
  const List used = {{EfiRuntimeServicesData, 101}, {EfiBootServicesData, 10}};
  Boot(list, used);
  const auto first = Start();
  EXPECT_EQ(first.end, sim::BootEnd::Reset);
  EXPECT_EQ(first.reset, EfiResetCold);
  ExpectVariable(kMemoryTypeInformationName, 3, BytesOf({{EfiRuntimeServicesData, 126}, {EfiBootServicesData, 1000}}),
                 gEfiMemoryTypeInformationGuid);
  Boot(list, used);
  EXPECT_EQ(Start().end, sim::BootEnd::Returned) << "no second reset, whatever was needed";
}

TEST_F(MemoryTypeTest, OnlyTypesKeptAcrossHibernationReset) {
  for (UINT32 type = 0; type < EfiMaxMemoryType; ++type) {
    SCOPED_TRACE(type);
    static_cast<void>(store.Set(kPreviousMemoryTypeInformationName, gEfiMemoryTypeInformationGuid, 0, {}));
    Boot({{type, 4}}, {{type, 4}});
    const bool resets = type == 0 || type == 5 || type == 6 || type == 9 || type == 10;
    EXPECT_EQ(Start().end, resets ? sim::BootEnd::Reset : sim::BootEnd::Returned);
    ExpectVariable(kMemoryTypeInformationName, 3, BytesOf({{type, 5}}), gEfiMemoryTypeInformationGuid);
  }
}

TEST_F(MemoryTypeTest, ATypeThatWasNotUsedNeedsNothingAndAHugeOneDoesNotWrap) {
  Boot({{EfiACPIMemoryNVS, 7}, {EfiLoaderData, 1}}, {{EfiLoaderData, 0xFFFFFFFF}});
  EXPECT_EQ(Start().end, sim::BootEnd::Returned);
  ExpectVariable(kMemoryTypeInformationName, 3, BytesOf({{EfiACPIMemoryNVS, 7}, {EfiLoaderData, 0xFFFFFFFF}}),
                 gEfiMemoryTypeInformationGuid);
}

TEST_F(MemoryTypeTest, SomeBootModesRegisterNothing) {
  expectsWork = false;
  for (const EFI_BOOT_MODE mode : {BOOT_ON_S4_RESUME, BOOT_ON_FLASH_UPDATE, BOOT_IN_RECOVERY_MODE}) {
    const std::size_t events = machine.Events().Count();
    Boot({{EfiLoaderData, 1}}, {{EfiLoaderData, 9}}, mode);
    EXPECT_EQ(machine.Events().Count(), events);
    EXPECT_EQ(Start().end, sim::BootEnd::Returned);
    EXPECT_EQ(Previous(), nullptr);
  }
  Boot({{EfiLoaderData, 1}}, {{EfiLoaderData, 9}}, BOOT_ON_S3_RESUME);
  Start();
  EXPECT_NE(Previous(), nullptr);
}

TEST_F(MemoryTypeTest, TheNoteIsOneBlockOfItsNameAndHoldsTheUsualGuidOnly) {
  const test::Data usual = test::DataOf(gEfiMemoryTypeInformationGuid);
  test::Data longer = usual;
  longer.resize(usual.size() + 8);
  test::Data other = usual;
  other[0] ^= std::byte{1};
  for (const bool note : {true, false}) {
    SCOPED_TRACE(note ? "behind other blocks of its name" : "only other blocks of its name");
    const EFI_GUID& vendor = note ? kFirmwarePerformanceGuid : gEfiMemoryTypeInformationGuid;
    hobs.emplace(BOOT_WITH_FULL_CONFIGURATION);
    ASSERT_TRUE(hobs->AddMemoryTypeInformation(List{{EfiLoaderData, 1}}));
    ASSERT_TRUE(hobs->AddGuid(kFirmwarePerformanceGuid, longer));
    ASSERT_TRUE(hobs->AddGuid(kFirmwarePerformanceGuid, other));
    if (note) {
      ASSERT_TRUE(hobs->AddVariableGuidNote());
    }
    Register({{EfiLoaderData, 9}});
    Start();
    EXPECT_EQ(Previous() != nullptr, !note);
    EXPECT_NE(Find(kPreviousMemoryTypeInformationName, vendor), nullptr);
    EXPECT_NE(Find(kMemoryTypeInformationName, vendor), nullptr);
  }
}

TEST_F(MemoryTypeTest, TheWorkIsDoneAtTheFirstOccasionOnly) {
  const struct {
    const char* What;
    void (*Occur)(test::DriverTest*);
  } occasions[] = {
      {"memory type signal", [](auto*) { static_cast<void>(bds::InstallNullProtocol(kMemoryTypeUpdateSignalGuid)); }},
      {"boot start signal", [](auto*) { static_cast<void>(bds::InstallNullProtocol(kBootStartSignalGuid)); }},
      {"legacy boot", [](auto*) { bds::SignalEventGroup(gEfiEventLegacyBootGuid); }},
      {"exit boot services", [](auto*) { bds::SignalEventGroup(gEfiEventExitBootServicesGuid); }},
  };
  for (const auto& row : occasions) {
    SCOPED_TRACE(row.What);
    static_cast<void>(store.Set(kPreviousMemoryTypeInformationName, gEfiMemoryTypeInformationGuid, 0, {}));
    const std::size_t events = machine.Events().Count();
    Boot({{EfiLoaderData, 100}}, {{EfiLoaderData, 1}});
    EXPECT_EQ(machine.Events().Count(), events + 4);
    row.Occur(this);
    EXPECT_NE(Previous(), nullptr);
    EXPECT_EQ(machine.Events().Count(), events + 3) << "the occasion's event is closed";
    ASSERT_EQ(store.Set(kPreviousMemoryTypeInformationName, gEfiMemoryTypeInformationGuid, 0, {}), EFI_SUCCESS);
    for (const auto& other : occasions) {
      other.Occur(this);
    }
    EXPECT_EQ(Previous(), nullptr);
    EXPECT_EQ(machine.Events().Count(), events);
  }
}

TEST_F(MemoryTypeTest, AListWithoutAnEndIsLeftAlone) {
  hobs.emplace(BOOT_WITH_FULL_CONFIGURATION);
  const EFI_MEMORY_TYPE_INFORMATION endless[] = {{EfiLoaderData, 1}, {EfiLoaderCode, 1}};
  ASSERT_TRUE(hobs->AddGuid(gEfiMemoryTypeInformationGuid, std::as_bytes(std::span(endless))));
  machine.InstallConfigurationTable(gEfiHobListGuid, const_cast<void*>(hobs->Build()));
  bds::InitializeServices(image, machine.SystemTable());
  bds::RegisterMemoryTypeInformationUpdateCallback();
  EXPECT_EQ(Start().end, sim::BootEnd::Returned);
  EXPECT_EQ(Previous(), nullptr);
}

}  // namespace
