// The JSON report: the members that scripts rely on, and texts that are no UTF-8.
#include "sim/cli/json_report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/sim_cli/report_builder.h"

namespace sim {
namespace {

nlohmann::json Report(const std::vector<BootResult>& boots, const std::string& name = "rack") {
  return nlohmann::json::parse(JsonReport(name, boots));
}

BootResult OneBoot() {
  BootResult result;
  result.starts = {ResetReport(EfiResetWarm), HandMadeReport()};
  result.warmResets = 1;
  return result;
}

// What the tests of whole boots do not read.
TEST(JsonReport, TellsMissingOptionsAndThosePassedOver) {
  const auto start = Report({OneBoot()})["boots"][0]["starts"][1];
  ASSERT_EQ(start["options"].size(), 5u);
  EXPECT_EQ(start["options"][3]["state"], "missing");
  EXPECT_EQ(start["options"][4]["name"], "hid\\x1B[31mden\\u202E");
  EXPECT_EQ(start["options"][4]["in_order"], false);
  EXPECT_EQ(start["attempts"][0]["status"], "EFI_NOT_FOUND");
  EXPECT_EQ(start["passed_over"][1]["reason"], "not active");
  EXPECT_EQ(start["variables_written"][0]["guid"], "8BE4DF61-93CA-11D2-AA0D-00E098032B8C");
  EXPECT_EQ(start["pool"]["leaks"][0]["size"], 48);
}

TEST(JsonReport, TellsTheTimeByStepAndByPhaseInSeconds) {
  const auto time = Report({OneBoot()})["boots"][0]["starts"][1]["time"];
  EXPECT_DOUBLE_EQ(time["total"], 3.25);
  EXPECT_EQ(time["steps"][1]["name"], "RestoreBootorder");
  EXPECT_DOUBLE_EQ(time["steps"][1]["start"], 1.1);
  EXPECT_DOUBLE_EQ(time["steps"][1]["duration"], 2.0);
  EXPECT_DOUBLE_EQ(time["phases"]["BMC"], 2.0);
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
