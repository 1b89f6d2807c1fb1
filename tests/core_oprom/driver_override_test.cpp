// GetDriver: the whole sequence of answers for one controller.
#include <gmock/gmock.h>

#include <list>

#include "platform/bus_specific_driver_override.h"
#include "tests/core_oprom/oprom_fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// Hands out its drivers in order, each only to whoever shows the one before.
struct BusDrivers {
  EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL Protocol{GetDriver};
  std::vector<EFI_HANDLE> Drivers;

  static EFI_STATUS EFIAPI GetDriver(EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL* self, EFI_HANDLE* driver) {
    const auto& drivers = reinterpret_cast<BusDrivers*>(self)->Drivers;
    auto next = drivers.begin();
    if (*driver != nullptr) {
      next = std::find(drivers.begin(), drivers.end(), *driver);
      if (next == drivers.end()) {
        return EFI_INVALID_PARAMETER;
      }
      ++next;
    }
    if (next == drivers.end()) {
      return EFI_NOT_FOUND;
    }
    *driver = *next;
    return EFI_SUCCESS;
  }
};

class DriverOverrideTest : public test::OptionRomTest {
 protected:
  EFI_STATUS Ask(EFI_HANDLE controller, EFI_HANDLE& driver) {
    auto* override = Located<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL>();
    return override == nullptr ? EFI_ABORTED : override->GetDriver(override, controller, &driver);
  }
  // All answers up to the one that ends them, which must be EFI_NOT_FOUND.
  std::vector<EFI_HANDLE> AskAll(EFI_HANDLE controller) {
    std::vector<EFI_HANDLE> answers;
    EFI_HANDLE driver = nullptr;
    EFI_STATUS status = Ask(controller, driver);
    for (; status == EFI_SUCCESS && answers.size() < 1000; status = Ask(controller, driver)) {
      answers.push_back(driver);
    }
    EXPECT_EQ(status, EFI_NOT_FOUND);
    return answers;
  }
  EFI_DRIVER_BINDING_PROTOCOL& NewBinding() { return bindings.emplace_back(); }

  std::list<EFI_DRIVER_BINDING_PROTOCOL> bindings;
};

TEST_F(DriverOverrideTest, StorageFollowsItsPolicyByte) {
  EFI_HANDLE thunk1 = AddDriver(NewBinding(), true);
  EFI_HANDLE uefi1 = AddDriver(NewBinding(), false);
  Start({0, 0, 0, 0, 0, 0});
  EFI_HANDLE thunk2 = AddDriver(NewBinding(), true);
  EFI_HANDLE uefi2 = AddDriver(NewBinding(), false);
  test::FakePci storage(1, 4);
  EFI_HANDLE controller = Install(&storage.PciIo);
  const struct {
    UINT8 Policy;
    std::vector<EFI_HANDLE> Expected;
  } cases[] = {{0, {}},
               {1, {uefi1, uefi2}},
               {2, {thunk1, thunk2}},
               {3, {thunk1, thunk2}},
               {4, {uefi1, uefi2}},
               {255, {uefi1, uefi2}}};
  for (const auto& row : cases) {
    bds::gOptionRom.Policy[bds::kPolicyMassStorage] = row.Policy;
    EXPECT_THAT(AskAll(controller), ElementsAreArray(row.Expected)) << int{row.Policy};
    EXPECT_THAT(AskAll(controller), ElementsAreArray(row.Expected)) << "again, " << int{row.Policy};
  }
}

TEST_F(DriverOverrideTest, EachClassHasItsByteAndOthersAreNeverOverridden) {
  EFI_HANDLE thunk = AddDriver(NewBinding(), true);
  EFI_HANDLE uefi = AddDriver(NewBinding(), false);
  const struct {
    UINT8 BaseClass;
    std::initializer_list<int> Policy;
    std::vector<EFI_HANDLE> Expected;
  } cases[] = {{1, {0, 0, 0, 2, 0, 0}, {thunk}}, {2, {0, 2, 0, 0, 0, 0}, {thunk}}, {3, {0, 0, 0, 0, 2, 0}, {thunk}},
               {1, {2, 2, 2, 1, 2, 2}, {uefi}},  {2, {2, 1, 2, 2, 2, 2}, {uefi}},  {3, {2, 2, 2, 2, 1, 2}, {uefi}},
               {0x0C, {2, 2, 2, 2, 2, 2}, {}},   {6, {1, 1, 1, 1, 1, 1}, {}},      {0, {2, 2, 2, 2, 2, 2}, {}}};
  Start({0, 0, 0, 0, 0, 0});
  for (const auto& row : cases) {
    const test::Data bytes = test::DataOf(row.Policy);
    std::memcpy(bds::gOptionRom.Policy, bytes.data(), bytes.size());
    test::FakePci function(row.BaseClass, 0);
    EFI_HANDLE controller = Install(&function.PciIo);
    EXPECT_THAT(AskAll(controller), ElementsAreArray(row.Expected)) << int{row.BaseClass};
    ASSERT_EQ(machine.Handles().Uninstall(controller, &ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &function.PciIo),
              EFI_SUCCESS);
  }
}

TEST_F(DriverOverrideTest, BusSpecificDriversComeBeforeTheUefiOnes) {
  EFI_HANDLE uefi = AddDriver(NewBinding(), false);
  EFI_HANDLE romDriver1 = AddDriver(NewBinding(), false);
  EFI_HANDLE romDriver2 = AddDriver(NewBinding(), false);
  Start({0, 0, 0, 1, 0, 0});
  test::FakePci storage(1, 4);
  EFI_HANDLE controller = Install(&storage.PciIo);
  BusDrivers bus;
  bus.Drivers = {romDriver1, romDriver2};
  ASSERT_EQ(machine.Install(controller, &bus.Protocol), EFI_SUCCESS);
  const auto expected = ElementsAre(romDriver1, romDriver2, uefi, romDriver1, romDriver2);
  EXPECT_THAT(AskAll(controller), expected);
  EXPECT_THAT(AskAll(controller), expected);
  bds::gOptionRom.Policy[bds::kPolicyMassStorage] = 2;
  EXPECT_THAT(AskAll(controller), IsEmpty()) << "the legacy path has no thunk driver and does not ask the bus";
}

TEST_F(DriverOverrideTest, AnAbandonedControllerDoesNotDisturbTheNext) {
  EFI_HANDLE thunk1 = AddDriver(NewBinding(), true);
  EFI_HANDLE thunk2 = AddDriver(NewBinding(), true);
  Start({0, 0, 0, 2, 0, 0});
  test::FakePci a(1, 4);
  test::FakePci b(1, 6);
  EFI_HANDLE first = Install(&a.PciIo);
  EFI_HANDLE second = Install(&b.PciIo);
  EFI_HANDLE driver = nullptr;
  ASSERT_EQ(Ask(first, driver), EFI_SUCCESS);
  EXPECT_THAT(AskAll(second), ElementsAre(thunk1, thunk2));
  driver = thunk1;
  EXPECT_EQ(Ask(first, driver), EFI_INVALID_PARAMETER);
}

TEST_F(DriverOverrideTest, ListsGrowPastSixtyFourDrivers) {
  std::vector<EFI_HANDLE> expected;
  for (int i = 0; i < 50; ++i) {
    expected.push_back(AddDriver(NewBinding(), true));
  }
  Start({0, 0, 0, 2, 0, 0});
  for (int i = 0; i < 150; ++i) {
    expected.push_back(AddDriver(NewBinding(), true));
  }
  test::FakePci storage(1, 4);
  EXPECT_THAT(AskAll(Install(&storage.PciIo)), ElementsAreArray(expected));
}

TEST_F(DriverOverrideTest, BadArgumentsAndUnreadableFunctions) {
  Start({0, 0, 0, 1, 0, 0});
  test::FakePci storage(1, 4);
  EFI_HANDLE controller = Install(&storage.PciIo);
  auto* override = Located<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL>();
  ASSERT_NE(override, nullptr);
  EFI_HANDLE driver = nullptr;
  EXPECT_EQ(override->GetDriver(override, nullptr, &driver), EFI_INVALID_PARAMETER);
  EXPECT_EQ(override->GetDriver(override, controller, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ(override->GetDriver(override, image, &driver), EFI_NOT_FOUND) << "no PCI function";
  storage.ConfigFails = true;
  EXPECT_EQ(override->GetDriver(override, controller, &driver), EFI_NOT_FOUND);
  EFI_DEVICE_PATH_PROTOCOL* path = nullptr;
  EXPECT_EQ(override->GetDriverPath(override, controller, &path), EFI_UNSUPPORTED);
  EXPECT_EQ(override->DriverLoaded(override, controller, path, image), EFI_UNSUPPORTED);
}

}  // namespace
