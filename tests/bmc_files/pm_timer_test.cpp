// The busy wait: its length, the timer's wrap, and timers that no machine should have.
#include "bmc/pm_timer.h"

#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

class PmTimer : public BmcFixture {
 protected:
  // A timer of the test's own, asked at each read.
  void Replace(std::function<std::uint32_t()> timer) {
    ports().Claim(bds::kPmTimerPort, bds::kPmTimerPort + 3,
                  [this, timer](std::uint16_t, unsigned) {
                    ++reads;
                    return timer();
                  },
                  {});
  }
  std::uint64_t reads = 0;
};

TEST_F(PmTimer, WaitsTheTimeAskedForAndLittleMore) {
  for (const std::uint32_t microseconds : {0U, 1U, 1000U, 200'000U, 6'000'000U}) {  // the last passes a wrap
    const sim::Ticks start = clock().Now();
    bds::PmTimerStall(microseconds);
    const sim::Ticks waited = clock().Now() - start;
    EXPECT_GE(waited, microseconds * sim::kMicrosecond) << microseconds;
    EXPECT_LE(waited, microseconds * sim::kMicrosecond * 103 / 100 + 100 * sim::kMicrosecond) << microseconds;
  }
}

TEST_F(PmTimer, TheWrapAndTheUpperByteDoNotCount) {
  std::uint32_t now = 0xABFFFFF0;
  Replace([&now] { return now = (now & 0xFF000000) | ((now + 8) & 0xFFFFFF); });
  bds::PmTimerStall(1000);
  EXPECT_EQ(reads, 1000U * 358 / 100 / 8 + 2);  // ticks in steps of 8, and the first read
}

TEST_F(PmTimer, ATimerThatStandsStillEndsTheWaitAllTheSame) {
  for (const std::uint32_t value : {0U, 0xFFFFFFFFU, 0x12345678U}) {
    reads = 0;
    Replace([value] { return value; });
    bds::PmTimerStall(1000);
    EXPECT_GE(reads, 1000U) << value;  // a read takes about a microsecond on the bus
    EXPECT_LE(reads, 4000U) << value;
  }
}

TEST_F(PmTimer, ATimerThatCreepsEndsTheWaitAllTheSame) {
  std::uint32_t calls = 0;
  Replace([&calls] { return ++calls / 1000; });
  bds::PmTimerStall(1000);
  EXPECT_LE(reads, 10'000U);
}

}  // namespace
}  // namespace test
