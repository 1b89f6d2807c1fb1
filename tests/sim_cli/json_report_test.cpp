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

TEST(JsonReport, HasTheFactsOfABoot) {
  const auto report = Report({OneBoot()});
  EXPECT_EQ(report["server"], "rack");
  const auto& boot = report["boots"][0];
  EXPECT_EQ(boot["started"], true);
  EXPECT_EQ(boot["booted"]["number"], "0002");
  EXPECT_EQ(boot["booted"]["name"], "debian");
  EXPECT_EQ(boot["booted"]["path"], "PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)/\\EFI\\debian\\shimx64.efi");
  EXPECT_EQ(boot["resets"], nlohmann::json({{"warm", 1}, {"cold", 0}, {"limit_reached", false}}));
  ASSERT_EQ(boot["starts"].size(), 2u);
  const auto& start = boot["starts"][1];
  EXPECT_EQ(start["order"], nlohmann::json({"0001", "0007", "0002", "0009"}));
  ASSERT_EQ(start["options"].size(), 5u);
  EXPECT_EQ(start["options"][3]["state"], "missing");
  EXPECT_EQ(start["options"][4]["name"], "hid\\x1B[31mden\\u202E");
  EXPECT_EQ(start["options"][4]["in_order"], false);
  EXPECT_EQ(start["attempts"][0]["status"], "EFI_NOT_FOUND");
  EXPECT_EQ(start["attempts"][0]["option"], "0001");
  EXPECT_EQ(start["passed_over"][1]["reason"], "not active");
  EXPECT_EQ(start["variables_written"][0]["name"], "Boot0002");
  EXPECT_EQ(start["variables_written"][0]["guid"], "8BE4DF61-93CA-11D2-AA0D-00E098032B8C");
  EXPECT_EQ(start["counts"]["GetVariable"], 12);
  EXPECT_EQ(start["pool"]["peak"], 4096);
  EXPECT_EQ(start["pool"]["leaks"][0]["size"], 48);
  EXPECT_EQ(start["complaints"][0], "a protocol closed twice");
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
