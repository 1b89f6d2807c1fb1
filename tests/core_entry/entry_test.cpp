// The entry point: what it leaves behind, and that a second boot in the same process starts from nothing.
#include "core/entry.h"

#include "platform/legacy_bios.h"
#include "tests/support/driver_fixture.h"

namespace {

using test::Data;

class EntryTest : public test::DriverTest {
 protected:
  EFI_STATUS Enter() { return EfiMain(image, machine.SystemTable()); }
  void SetSetup(std::initializer_list<int> policy) {
    Data setup(kSetupSize);
    const Data bytes = test::DataOf(policy);
    std::copy(bytes.begin(), bytes.end(), setup.begin() + kSetupOptionRomPolicy);
    Set(kSetupName, setup, 3, kSetupGuid);
  }
  std::vector<int> Policy() const { return {std::begin(bds::gOptionRom.Policy), std::end(bds::gOptionRom.Policy)}; }
  std::u16string Vendor() { return machine.SystemTable()->FirmwareVendor; }
};

TEST_F(EntryTest, InstallsTheArchitecturalProtocolAndNamesTheFirmware) {
  EXPECT_EQ(Enter(), EFI_SUCCESS);
  EXPECT_EQ(machine.Handles().With(ProtocolGuid<EFI_BDS_ARCH_PROTOCOL>).size(), 1U);
  EXPECT_EQ(Vendor(), u"Nuvarin");
  EXPECT_EQ(machine.SystemTable()->FirmwareRevision, 0x0005000BU);
  const auto* block = machine.Pool().Find(machine.SystemTable()->FirmwareVendor);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->type, EfiRuntimeServicesData);
  EXPECT_EQ(block->size, 16U);
  EXPECT_EQ(Log(), "");
}

TEST_F(EntryTest, WithoutMemoryTheVendorStaysAndTheRestIsDone) {
  const std::u16string before = Vendor();
  machine.Faults().FailCall("AllocatePool", 1, EFI_OUT_OF_RESOURCES, 1000);
  EXPECT_EQ(Enter(), EFI_SUCCESS);
  EXPECT_EQ(Vendor(), before);
  EXPECT_EQ(machine.SystemTable()->FirmwareRevision, 0x0005000BU);
}

TEST_F(EntryTest, WithoutACsmTheSwitchIsOffAndTheDisplayIsUefi) {
  SetSetup({1, 2, 3, 4, 5, 6});
  ASSERT_EQ(Enter(), EFI_SUCCESS);
  EXPECT_EQ(Policy(), (std::vector{0, 2, 3, 4, 1, 6}));
  EXPECT_FALSE(bds::gOptionRom.Started);
}

TEST_F(EntryTest, ACsmThatAppearsLaterBringsTheSetupBytesBack) {
  SetSetup({1, 2, 3, 4, 5, 6});
  ASSERT_EQ(Enter(), EFI_SUCCESS);
  EFI_LEGACY_BIOS_PROTOCOL legacyBios{};
  Install(&legacyBios);
  EXPECT_EQ(Policy(), (std::vector{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(bds::gOptionRom.Started);
}

TEST_F(EntryTest, ACsmThatIsThereStartsThePolicyAtOnceAndOnce) {
  EFI_LEGACY_BIOS_PROTOCOL legacyBios{};
  Install(&legacyBios);
  SetSetup({1, 0, 0, 0, 3, 0});
  ASSERT_EQ(Enter(), EFI_SUCCESS);
  EXPECT_EQ(Policy(), (std::vector{1, 0, 0, 0, 3, 0}));
  EFI_LEGACY_BIOS_PROTOCOL another{};
  Install(&another);
  EXPECT_EQ(machine.Handles().With(ProtocolGuid<EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL>).size(), 1U);
}

TEST_F(EntryTest, NothingOfAnEarlierBootIsLeft) {
  bds::gCore.Setup.Bytes[5] = 9;
  bds::gCore.SetupRead = TRUE;
  bds::gCore.MemoryTypesUpdated = TRUE;
  bds::gOptionRom.Started = TRUE;
  bds::gBmc.ZephanConfigMode = TRUE;
  bds::gPolicyEngine.BootMode = 2;
  bds::gBootOptions.OptionList.Count = 7;
  bds::gDebug.Mask = 0;
  ASSERT_EQ(Enter(), EFI_SUCCESS);
  EXPECT_EQ(bds::gCore.Setup.Bytes[5], 0);
  EXPECT_FALSE(bds::gCore.SetupRead);
  EXPECT_FALSE(bds::gCore.MemoryTypesUpdated);
  EXPECT_FALSE(bds::gOptionRom.Started);
  EXPECT_FALSE(bds::gBmc.ZephanConfigMode);
  EXPECT_EQ(bds::gPolicyEngine.BootMode, 0);
  EXPECT_EQ(bds::gBootOptions.OptionList.Count, 0U);
  EXPECT_EQ(bds::gDebug.Mask, 0x80000046U);
}

TEST_F(EntryTest, AWholeBootOfAnEmptyMachineReturnsWithItsLastLine) {
  ASSERT_EQ(Enter(), EFI_SUCCESS);
  auto* entry =
      machine.Handles().Get<EFI_BDS_ARCH_PROTOCOL>(machine.Handles().With(ProtocolGuid<EFI_BDS_ARCH_PROTOCOL>).front());
  entry->Entry(entry);
  EXPECT_TRUE(Log().starts_with("BDS:Executing BdsEntry\n"));
  EXPECT_TRUE(Log().ends_with("BdsEntry:Out of BdsEntry, this should never happen\n"));
  EXPECT_GE(machine.Time().Now(), 3 * sim::kSecond);
  EXPECT_FALSE(Logged("BDS.SignalConnectDriversEvent"));
}

}  // namespace
