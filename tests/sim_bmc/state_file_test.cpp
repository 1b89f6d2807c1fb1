// The BMC's state file: whole, damaged, absent.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "sim/bmc/bmc_state.h"

namespace sim {
namespace {

class StateFile : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/bmc-state-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder = name;
    file = folder / "bmc" / "parameters.toml";
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  void Put(const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }
  std::filesystem::path folder;
  std::filesystem::path file;
  std::string error;
};

TEST_F(StateFile, NoFileIsTheInitialState) { EXPECT_EQ(BmcState::Load(file, error), BmcState{}); }

TEST_F(StateFile, WhatIsSavedIsLoadedByteByByte) {
  BmcState state;
  state.setInProgress = 1;
  state.validBitClearing = 8;
  state.acknowledge = 0xFF;
  state.bootFlags = {0xE0, 0xFF, 0x00, 0x0A, 0x1F};
  state.botBlockSize = 128;
  for (int i = 0; i < 300; ++i) {
    state.bootOrderTable.push_back(static_cast<std::uint8_t>(i));
  }
  state.oneTimeStaleRequests = 0xFFFFFFFF;
  ASSERT_TRUE(state.Save(file, error)) << error;
  EXPECT_EQ(BmcState::Load(file, error), state) << error;
  EXPECT_FALSE(std::filesystem::exists(file.string() + ".new"));
}

TEST_F(StateFile, DamageIsNamedWithFileLineAndKey) {
  const struct {
    const char* text;
    const char* says;
  } cases[] = {
      {"set_in_progress = 3\n", ":1: set_in_progress: expected a number from 0 to 2"},
      {"\nacknowledge = -1\n", ":2: acknowledge: "},
      {"acknowledge = \"1\"\n", ":1: acknowledge: "},
      {"boot_flags = \"80 04\"\n", ":1: boot_flags: expected 5 to 5 bytes"},
      {"boot_flags = \"80 04 00 00 0\"\n", ":1: boot_flags: "},
      {"boot_flags = \"80 04 00 00 zz\"\n", ":1: boot_flags: "},
      {"boot_flag = \"80\"\n", ":1: boot_flag: no such key"},
      {"set_in_progress = \n", ":1: "},
  };
  for (const auto& c : cases) {
    Put(c.text);
    EXPECT_FALSE(BmcState::Load(file, error)) << c.text;
    EXPECT_NE(error.find(file.string() + c.says), std::string::npos) << error;
    error.clear();
  }
}

}  // namespace
}  // namespace sim
