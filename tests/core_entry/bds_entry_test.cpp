// The control flow around the steps: Timeout, the debug lines and the loop.
#include "core/bds_entry.h"

#include <gmock/gmock.h>

#include "tests/support/driver_fixture.h"

namespace {

using test::Data;

class BdsEntryTest : public test::DriverTest {};

TEST_F(BdsEntryTest, APresentTimeoutIsLeftAlone) {
  const struct {
    const char* What;
    Data Value;
    UINT32 Attributes;
  } cases[] = {{"zero", test::DataOf(UINT16{0}), 7},
               {"one byte", test::DataOf({9}), 7},
               {"eight bytes", test::DataOf(UINT64{1}), 3},
               {"volatile", test::DataOf(UINT16{20}), 6}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    Set(u"Timeout", row.Value, row.Attributes);
    bds::BdsEntry();
    ExpectVariable(u"Timeout", row.Attributes, row.Value);
    ASSERT_EQ(store.Set(u"Timeout", gEfiGlobalVariableGuid, 0, {}), EFI_SUCCESS);
  }
}

TEST_F(BdsEntryTest, AReadThatFailsOtherwiseWritesNothing) {
  machine.Faults().FailCall("GetVariable", 1, EFI_DEVICE_ERROR);
  bds::BdsEntry();
  EXPECT_EQ(Find(u"Timeout"), nullptr);
}

TEST_F(BdsEntryTest, ASerialPortThatNeverEmptiesIsWaitedForOnce) {
  std::uint32_t polls = 0;
  const auto busy = [&](std::uint16_t, unsigned) { return polls++ & 0U; };
  machine.Ports().Claim(0x3FD, 0x3FD, busy, {});
  bds::BdsEntry();
  EXPECT_EQ(polls, 100'001U);
  EXPECT_EQ(Log(), "");
  ExpectVariable(u"Timeout", 7, test::DataOf(UINT16{3}));
}

}  // namespace
