// Late dispatch, memory that nobody tested, and capsule variables.
#include <gmock/gmock.h>

#include "core/steps.h"
#include "platform/signals.h"
#include "sim/firmware/services/memory_space.h"
#include "tests/support/driver_fixture.h"

namespace {

constexpr UINT64 kGigabyte = UINT64{1} << 30;
constexpr UINT64 kUntested = 0x0300000000000000;

class LateStepsTest : public test::DriverTest {
 protected:
  const EFI_GCD_MEMORY_SPACE_DESCRIPTOR* RangeAt(UINT64 base) {
    map = dxe.Memory().Map();
    for (const auto& range : map) {
      if (range.BaseAddress <= base && base - range.BaseAddress < range.Length) {
        return &range;
      }
    }
    return nullptr;
  }
  sim::DxeServicesModel dxe{machine.BootServices()};
  std::vector<EFI_GCD_MEMORY_SPACE_DESCRIPTOR> map;
};

TEST_F(LateStepsTest, OnlyUntestedReservedMemoryBecomesSystemMemory) {
  ASSERT_EQ(dxe.Install(), EFI_SUCCESS);
  const struct {
    EFI_GCD_MEMORY_TYPE Type;
    UINT64 Capabilities;
    bool Recovered;
  } cases[] = {
      {EfiGcdMemoryTypeReserved, kUntested | 0xF, true},
      {EfiGcdMemoryTypeReserved, kUntested | 0x800000000000000F, true},
      {EfiGcdMemoryTypeReserved, 0x0700000000000000, false},
      {EfiGcdMemoryTypeReserved, 0x0100000000000000, false},
      {EfiGcdMemoryTypeReserved, 0x0200000000000000, false},
      {EfiGcdMemoryTypeReserved, 0, false},
      {EfiGcdMemoryTypeSystemMemory, kUntested | 0xE, false},
      {EfiGcdMemoryTypeMemoryMappedIo, kUntested | 0xD, false},
  };
  UINT64 base = 4 * kGigabyte;
  for (const auto& row : cases) {
    ASSERT_EQ(dxe.Memory().Add(row.Type, base, kGigabyte, row.Capabilities), EFI_SUCCESS);
    base += 2 * kGigabyte;
  }
  const std::size_t blocks = machine.Pool().Count();
  bds::RecoverTheMemoryAbove4Gb();
  EXPECT_EQ(machine.Pool().Count(), blocks);
  base = 4 * kGigabyte;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.Capabilities);
    const auto* range = RangeAt(base);
    ASSERT_NE(range, nullptr);
    EXPECT_EQ(range->Length, kGigabyte);
    EXPECT_EQ(range->GcdMemoryType, row.Recovered ? EfiGcdMemoryTypeSystemMemory : row.Type);
    EXPECT_EQ(range->Capabilities, row.Recovered ? row.Capabilities & 0x78FFFFFFFFFFFFFF : row.Capabilities);
    base += 2 * kGigabyte;
  }
}

TEST_F(LateStepsTest, CapsuleVariablesGoUpToTheFirstGap) {
  for (const char16_t* name :
       {u"CapsuleUpdateData", u"CapsuleUpdateData1", u"CapsuleUpdateData2", u"CapsuleUpdateData4"}) {
    Set(name, test::DataOf(UINT64{1}), 7, gEfiCapsuleVendorGuid);
  }
  Set(u"CapsuleUpdateData", test::DataOf({1}));  // another vendor's
  EXPECT_EQ(bds::PerformCapsuleVariableCleanup(), EFI_NOT_FOUND);
  EXPECT_EQ(Find(u"CapsuleUpdateData", gEfiCapsuleVendorGuid), nullptr);
  EXPECT_EQ(Find(u"CapsuleUpdateData1", gEfiCapsuleVendorGuid), nullptr);
  EXPECT_EQ(Find(u"CapsuleUpdateData2", gEfiCapsuleVendorGuid), nullptr);
  EXPECT_NE(Find(u"CapsuleUpdateData4", gEfiCapsuleVendorGuid), nullptr);
  EXPECT_NE(Find(u"CapsuleUpdateData"), nullptr);
}

TEST_F(LateStepsTest, AFirmwareThatAlwaysDeletesDoesNotHoldTheBoot) {
  machine.Faults().FailCall("SetVariable", 1, EFI_SUCCESS, 1'000'000);
  EXPECT_EQ(bds::PerformCapsuleVariableCleanup(), EFI_SUCCESS);
  EXPECT_EQ(machine.Counts().Of("SetVariable"), 65536U);
}

}  // namespace
