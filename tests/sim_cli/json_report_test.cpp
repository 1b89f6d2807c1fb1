// The JSON report: the members that scripts rely on, and texts that are no UTF-8.
#include "sim/cli/json_report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/sim_cli/report_builder.h"

namespace sim {
namespace {

nlohmann::json Report(const std::vector<BootResult>& boots, const std::string& name = "rack") {
  return nlohmann::json::parse(JsonReport(name, {}, boots));
}

BootResult OneBoot() {
  BootResult result;
  result.starts = {ResetReport(EfiResetWarm), HandMadeReport()};
  result.warmResets = 1;
  return result;
}

TEST(JsonReport, BytesThatAreNoTextDoNotBreakIt) {
  BootResult result = OneBoot();
  result.starts[1].attempts[0].what = "bad \xFF bytes";
  result.starts[1].options[0].name = u"lone \xD800";
  const auto start = Report({result}, "name \xC3")["boots"][0]["starts"][1];
  EXPECT_EQ(start["attempts"][0]["what"], "bad \xEF\xBF\xBD bytes");
  EXPECT_EQ(start["options"][0]["name"], "lone \\uD800");
}

}  // namespace
}  // namespace sim
