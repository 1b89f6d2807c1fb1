// The early pause: exactly three seconds, whatever happens, and never without an end.
#include "core/steps.h"
#include "tests/support/driver_fixture.h"

namespace {

class WaitForUserInputTest : public test::DriverTest {};

TEST_F(WaitForUserInputTest, WaitsBelowARaisedPriorityAndRestoresIt) {
  machine.Events().Raise(TPL_CALLBACK);
  const sim::Ticks before = machine.Time().Now();
  bds::WaitForUserInput();
  EXPECT_EQ(machine.Time().Now() - before, 3 * sim::kSecond);
  EXPECT_EQ(machine.Events().CurrentTpl(), TPL_CALLBACK);
  machine.Events().Restore(TPL_APPLICATION);
}

TEST_F(WaitForUserInputTest, EachFailureIsReportedAndThePauseGoesOn) {
  const struct {
    const char* Service;
    const char* Message;
    sim::Ticks Pause;
  } cases[] = {
      {"CreateEvent", "ERROR: WaitForUserInput:CreateEvent = EFI_DEVICE_ERROR\n", 0},
      {"SetTimer", "ERROR: WaitForUserInput:SetTimer = EFI_DEVICE_ERROR\n", 0},
      {"WaitForEvent", "ERROR: WaitForUserInput:WaitForEvent = EFI_DEVICE_ERROR, Index = 0\n", 0},
      {"CloseEvent", "ERROR : WaitForUserInput:CloseEvent = EFI_DEVICE_ERROR\n", 3 * sim::kSecond},
  };
  std::string expected;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.Service);
    machine.Faults().SetCallHook([&](std::string_view service, std::uint64_t) -> std::optional<EFI_STATUS> {
      return service == row.Service ? std::optional(EFI_DEVICE_ERROR) : std::nullopt;
    });
    const sim::Ticks before = machine.Time().Now();
    bds::WaitForUserInput();
    EXPECT_EQ(machine.Time().Now() - before, row.Pause);
    expected += row.Message;
    EXPECT_EQ(Log(), expected);
  }
}

}  // namespace
