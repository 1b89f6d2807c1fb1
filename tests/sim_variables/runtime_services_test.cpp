// The runtime services table on a machine: scripted faults, power cuts after a write, resets, and the clock.
#include "sim/firmware/variables/runtime_services.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

constexpr std::uint32_t kAll =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

class Runtime : public testing::Test {
 protected:
  EFI_STATUS Set(const CHAR16* name, UINTN size, const char* data, std::uint32_t attributes = kAll) {
    return machine_.RuntimeServices()->SetVariable(name, &gEfiGlobalVariableGuid, attributes, size, data);
  }
  bool Has(const char16_t* name) { return store_.Find(name, gEfiGlobalVariableGuid) != nullptr; }

  VariableStore store_;
  Machine machine_;
  RuntimeServices& services_ = machine_.Attach<RuntimeServices>(store_);
};

TEST_F(Runtime, TheScriptedCallFailsAndTheOthersWork) {
  machine_.Faults().FailCall("SetVariable", 2, EFI_DEVICE_ERROR);
  EXPECT_EQ(Set(u"A", 1, "a"), EFI_SUCCESS);
  EXPECT_EQ(Set(u"B", 1, "b"), EFI_DEVICE_ERROR);
  EXPECT_EQ(Set(u"C", 1, "c"), EFI_SUCCESS);
  EXPECT_FALSE(Has(u"B"));
  EXPECT_EQ(machine_.Counts().Of("SetVariable"), 3u);
}

TEST_F(Runtime, PowerGoesAfterTheNthLastingWriteAndTheWriteHolds) {
  machine_.Faults().LosePowerAfterWrite("nvram", 2);
  const BootOutcome outcome = machine_.Run([&] {
    Set(u"A long variable name", 1, "a");
    Set(u"A long variable name", 1, "a");                       // unchanged: no write
    Set(u"Volatile", 1, "v", EFI_VARIABLE_BOOTSERVICE_ACCESS);  // not in NVRAM
    Set(u"B", 1, "b");
    Set(u"C", 1, "c");
    return EFI_SUCCESS;
  });
  EXPECT_EQ(outcome.end, BootEnd::PowerLost);
  EXPECT_TRUE(Has(u"B"));
  EXPECT_FALSE(Has(u"C"));
}

TEST_F(Runtime, ResetEndsTheBootWithItsKind) {
  const BootOutcome outcome = machine_.Run([&] {
    machine_.RuntimeServices()->ResetSystem(EfiResetWarm, EFI_ABORTED, 0, nullptr);
    return EFI_SUCCESS;
  });
  EXPECT_EQ(outcome.end, BootEnd::Reset);
  EXPECT_EQ(outcome.reset, EfiResetWarm);
  EXPECT_EQ(outcome.status, EFI_ABORTED);
}

TEST_F(Runtime, TimeFollowsTheVirtualClock) {
  services_.SetStartTime({2026, 2, 28, 23, 59, 59, 0, 0, 0, 0, 0});
  machine_.Time().Advance(2 * kSecond + 7 * kMicrosecond);
  EFI_TIME time{};
  ASSERT_EQ(machine_.RuntimeServices()->GetTime(&time, nullptr), EFI_SUCCESS);
  EXPECT_EQ(time.Month, 3);
  EXPECT_EQ(time.Day, 1);
  EXPECT_EQ(time.Second, 1);
  EXPECT_EQ(time.Nanosecond, 7000u);
  EXPECT_EQ(machine_.RuntimeServices()->GetTime(nullptr, nullptr), EFI_INVALID_PARAMETER);
}

}  // namespace
}  // namespace sim
