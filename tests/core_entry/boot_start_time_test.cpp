// The boot-start time stamp: written when every piece is there, and nothing touched when one is missing.
#include "core/boot_start_time.h"

#include <functional>

#include "platform/signals.h"
#include "sim/firmware/services/platform_records.h"
#include "support/event.h"
#include "tests/support/driver_fixture.h"

namespace {

class BootStartTimeTest : public test::DriverTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(performance.Install(machine.BootServices(), machine.RuntimeServices()), EFI_SUCCESS);
    machine.Time().Advance(2 * sim::kSecond);
  }
  sim::FirmwarePerformanceModel performance;
};

TEST_F(BootStartTimeTest, ALargeCounterDoesNotOverflow) {
  machine.Time().Advance(20 * 3600 * sim::kSecond);  // counter * factor is beyond 64 bits
  bds::StampBootStartTime();
  EXPECT_NEAR(static_cast<double>(performance.LoaderStart()), 20 * 3600e9 + 2e9, 1e6);
}

TEST_F(BootStartTimeTest, AMissingPieceLeavesTheRecordAlone) {
  const struct {
    const char* What;
    std::function<void()> Damage;
  } cases[] = {
      {"record signature", [&] { performance.Record()->Signature ^= 1; }},
      {"record type", [&] { performance.Record()->Type = 3; }},
      {"timer factor", [&] { performance.Block()->TimerFactor = 0; }},
      {"record address", [&] { performance.Block()->BootRecord = 0; }},
      {"block signature", [&] { reinterpret_cast<UINT32*>(performance.Block())[-1] ^= 1; }},
  };
  const auto block = *performance.Block();
  const auto record = *performance.Record();
  const UINT32 signature = reinterpret_cast<UINT32*>(performance.Block())[-1];
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    row.Damage();
    bds::gCore.PerformanceData = 0;
    bds::StampBootStartTime();
    EXPECT_EQ(performance.LoaderStart(), 0U);
    *performance.Block() = block;
    *performance.Record() = record;
    reinterpret_cast<UINT32*>(performance.Block())[-1] = signature;
  }
  bds::gCore.PerformanceData = 0;
  bds::StampBootStartTime();
  EXPECT_NE(performance.LoaderStart(), 0U);
}

TEST_F(BootStartTimeTest, AVariableOfAnotherSizeIsNotFollowed) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{3}, std::size_t{8}}) {
    ASSERT_EQ(store.Set(kFirmwarePerformanceName, kFirmwarePerformanceGuid, 0, {}), EFI_SUCCESS);
    Set(kFirmwarePerformanceName, test::Data(size, std::byte{0x11}), 6, kFirmwarePerformanceGuid);
    bds::StampBootStartTime();
    EXPECT_EQ(bds::gCore.PerformanceData, 0U) << size;
  }
  EXPECT_EQ(performance.LoaderStart(), 0U);
}

}  // namespace
