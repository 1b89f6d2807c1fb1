// Phases hold every step of the driver exactly once, in the driver's order.
#include "sim/cli/phases.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace sim
