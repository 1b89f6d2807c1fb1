// Phases hold every step of the driver exactly once, and their times add up.
#include "sim/cli/phases.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "core/step_table.h"

namespace sim {
namespace {

TEST(Phases, HoldTheDriversStepsInTheirOrder) {
  std::vector<std::string_view> steps;
  for (const PhaseStep& each : PhaseSteps()) {
    steps.push_back(each.step);
  }
  const std::vector<std::string_view> driver(bds::kStepNames.begin(), bds::kStepNames.begin() + bds::kStepCount);
  EXPECT_EQ(steps, driver);
}

TEST(Phases, NoStepIsOutsideAndEveryPhaseHasSome) {
  std::set<Phase> phases;
  for (const PhaseStep& each : PhaseSteps()) {
    phases.insert(each.phase);
  }
  EXPECT_EQ(phases.count(Phase::Other), 0u);
  EXPECT_EQ(phases.size(), kPhaseCount - 1);
}

TEST(Phases, TimesAddUpToTheBootWhateverTheStepsAreCalled) {
  BootReport report;
  report.outcome.time = 1000;
  report.steps = {{"SaveBootOptions", 0, 300}, {"NoSuchStep", 300, 50}, {"SaveBootOptions", 350, 100}};
  const auto times = PhaseTimes(report);
  EXPECT_EQ(times[static_cast<std::size_t>(Phase::Saving)], 400u);
  EXPECT_EQ(times[static_cast<std::size_t>(Phase::Other)], 600u);
  EXPECT_EQ(std::accumulate(times.begin(), times.end(), Ticks{0}), 1000u);
}

TEST(Phases, StepsLongerThanTheBootLeaveNothingOutside) {
  BootReport report;
  report.outcome.time = 10;
  report.steps = {{"SaveBootOptions", 0, 300}};
  EXPECT_EQ(PhaseTimes(report)[static_cast<std::size_t>(Phase::Other)], 0u);
}

}  // namespace
}  // namespace sim
