// Faults in words, and when they strike.
#include "tests/sim_firmware/firmware_fixture.h"

namespace sim {
namespace {

TEST(FaultScriptTest, WordsAreTakenWholeOrRefused) {
  struct Case {
    const char* words;
    bool good;
  };
  const Case cases[] = {
      {"call GetVariable 3 EFI_DEVICE_ERROR", true},
      {"call GetVariable 3 EFI_DEVICE_ERROR 2", true},
      {"call GetVariable 1 0x8000000000000007", true},
      {"  power   nvram  4 ", true},
      {"", false},
      {"call", false},
      {"call GetVariable", false},
      {"call GetVariable three EFI_DEVICE_ERROR", false},
      {"call GetVariable 0 EFI_DEVICE_ERROR", false},
      {"call GetVariable -1 EFI_DEVICE_ERROR", false},
      {"call GetVariable 1 EFI_NO_SUCH_STATUS", false},
      {"call GetVariable 1 EFI_DEVICE_ERROR many", false},
      {"call GetVariable 1 EFI_DEVICE_ERROR 2 3", false},
      {"power nvram", false},
      {"power nvram 1x", false},
      {"power nvram 1 2", false},
      {"powers nvram 1", false},
      {"power moon 1", false},
      {"call SetVariabel 1 EFI_DEVICE_ERROR", false},
  };
  for (const Case& c : cases) {
    FaultScript script;
    std::string error;
    EXPECT_EQ(script.Add(c.words, error), c.good) << c.words;
    EXPECT_EQ(error.empty(), c.good) << c.words;
  }
}

class FaultTest : public FirmwareTest {};

TEST_F(FaultTest, ScriptedCallsAnswerAndDoNothing) {
  std::string error;
  ASSERT_TRUE(machine.Faults().Add("call AllocatePool 2 EFI_OUT_OF_RESOURCES 2", error));
  std::vector<EFI_STATUS> answers;
  for (int i = 0; i < 4; ++i) {
    void* block = nullptr;
    answers.push_back(bs->AllocatePool(EfiBootServicesData, 8, &block));
    EXPECT_EQ(block != nullptr, !EFI_ERROR(answers.back())) << i;
  }
  EXPECT_THAT(answers, testing::ElementsAre(EFI_SUCCESS, EFI_OUT_OF_RESOURCES, EFI_OUT_OF_RESOURCES, EFI_SUCCESS));
  EXPECT_EQ(machine.Pool().Count(), 2u);
  EXPECT_EQ(machine.Counts().Of("AllocatePool"), 4u);
}

}  // namespace
}  // namespace sim
