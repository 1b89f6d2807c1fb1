// The PM timer behind its port: what reads in a row cost, what ends a row, and the wrap.
#include <gtest/gtest.h>

#include <functional>

#include "sim/firmware/clock.h"
#include "sim/firmware/counters.h"
#include "sim/firmware/port_bus.h"

namespace sim {
namespace {

class PmTimerPort : public testing::Test {
 protected:
  // Microseconds that a read costs.
  Ticks Read() {
    const Ticks before = clock.Now();
    const std::uint32_t value = bus.In(PortBus::kPmTimerPort, 4);
    EXPECT_EQ(value, clock.PmTimer());
    return (clock.Now() - before) / kMicrosecond;
  }
  Clock clock;
  Counters counters;
  PortBus bus{clock, counters};
};

TEST_F(PmTimerPort, ReadsInARowCostMoreUntilAnythingElseHappens) {
  const std::function<void()> others[] = {
      [this] { bus.In(0x620, 1); }, [this] { bus.Out(0x80, 0, 1); }, [this] { bus.Out(PortBus::kSerialPort, 'x', 1); },
      [this] { clock.Step(); },  // as each service call does
  };
  for (const auto& other : others) {
    for (const Ticks cost : {1, 2, 4, 8, 16, 32, 64, 100, 100}) {
      EXPECT_EQ(Read(), cost);
    }
    other();
  }
  EXPECT_EQ(Read(), 1);
}

TEST_F(PmTimerPort, AWaitInARowSeesEveryWrap) {
  constexpr std::uint64_t kMask = 0xFFFFFF;
  std::uint64_t counted = 0;
  for (std::uint32_t last = bus.In(PortBus::kPmTimerPort, 4); clock.Now() < 20 * kSecond;) {
    const std::uint32_t now = bus.In(PortBus::kPmTimerPort, 4);
    counted += (now - last) & kMask;
    last = now;
  }
  EXPECT_NEAR(static_cast<double>(counted), 20 * 3'579'545.0, 500);
  EXPECT_GT(counted, 4 * kMask);
}

}  // namespace
}  // namespace sim
