// The System Boot Options' requests, answers and completion codes.
#include "sim/bmc/ipmi_model.h"

#include <gtest/gtest.h>

#include "sim/bmc/boot_flag_words.h"

namespace sim {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint8_t kGet = 9;
constexpr std::uint8_t kSet = 8;

class Parameters : public testing::Test {
 protected:
  IpmiReply Ask(std::uint8_t command, const Bytes& request, std::uint8_t netFn = 0) {
    return *model.Request(netFn, command, request);
  }
  BmcState state;
  Clock clock;
  int changes = 0;
  int staleRequests = 0;
  IpmiModel model{state, clock, {[this] { ++changes; }, [this] { ++staleRequests; }}};
};

TEST_F(Parameters, AnswersHaveTheBytesAndLengthsOfTheStandard) {
  state.acknowledge = 0x1F;
  state.bootFlags = {0xE0, 0x04, 0, 0, 0x12};
  state.bootOrderTable.assign(36, 0x55);
  EXPECT_EQ(Ask(kGet, {0, 0, 0}).data, (Bytes{1, 0, 0}));
  EXPECT_EQ(Ask(kGet, {4, 0, 0}).data, (Bytes{1, 4, 0, 0x1F}));
  EXPECT_EQ(Ask(kGet, {5, 0, 0}).data, (Bytes{1, 5, 0xE0, 0x04, 0, 0, 0x12}));
  const Bytes record = Ask(kGet, {0x78, 0, 1}).data;
  EXPECT_EQ(record, (Bytes{1, 0x78, '_', 'P', 'B', '_', 0, 0, 0, 0, 0, 0, 32, 0, 0, 0, 0, 0x90}));
  Bytes second(37);
  second[0] = 1;
  second[1] = 0x7D;
  second[2] = 0x55;
  EXPECT_EQ(Ask(kGet, {0x7D, 0, 2}).data, second);
  EXPECT_EQ(changes, 0);
}

TEST_F(Parameters, WrongRequestsAnswerWithTheirCompletionCode) {
  const struct {
    std::uint8_t netFn;
    std::uint8_t command;
    Bytes request;
    std::uint8_t completion;
  } cases[] = {
      {0, kGet, {5, 0}, 0xC7},    {0, kGet, {6, 0, 0}, 0x80}, {0, kGet, {0x7D, 0, 0}, 0xC9},
      {0, kSet, {}, 0xC7},        {0, kSet, {5, 0x80}, 0xC7}, {0, kSet, {4, 1}, 0xC7},
      {0, kSet, {0, 3}, 0xC9},    {0, kSet, {0x78, 0}, 0x82}, {0, kSet, {0x7D, 0, 1}, 0xC7},
      {0, kSet, {0x55, 0}, 0x80}, {0, 0x01, {}, 0xC1},        {6, kGet, {5, 0, 0}, 0xC1},
      {0x36, 0x16, {9}, 0xC7},    {0x36, 0x16, {9, 1}, 0xC9},
  };
  const BmcState before = state;
  for (const auto& c : cases) {
    const IpmiReply reply = Ask(c.command, c.request, c.netFn);
    EXPECT_EQ(reply.completion, c.completion) << testing::PrintToString(c.request);
    EXPECT_TRUE(reply.data.empty());
  }
  EXPECT_EQ(state, before);
}

TEST_F(Parameters, AcknowledgeChangesOnlyTheMaskedBits) {
  state.acknowledge = 0x1F;
  EXPECT_EQ(Ask(kSet, {4, 0x01, 0x00}).completion, 0);
  EXPECT_EQ(state.acknowledge, 0x1E);
  EXPECT_EQ(Ask(kSet, {4, 0x10, 0xFF}).completion, 0);
  EXPECT_EQ(state.acknowledge, 0x1E);
  EXPECT_EQ(changes, 1);
}

TEST_F(Parameters, TheValidBitGoesAfterAMinuteUnlessItIsKept) {
  const struct {
    std::uint8_t clearing;
    Ticks wait;
    std::uint8_t flags;
  } cases[] = {{0, 59 * kSecond, 0x80}, {0, 60 * kSecond, 0x00}, {0x08, 600 * kSecond, 0x80}};
  for (const auto& c : cases) {
    ASSERT_EQ(Ask(kSet, {3, c.clearing}).completion, 0);
    ASSERT_EQ(Ask(kSet, {5, 0x80, 0x04, 0, 0, 0}).completion, 0);
    clock.Advance(c.wait);
    EXPECT_EQ(Ask(kGet, {5, 0, 0}).data[2], c.flags);
  }
  // What was there when the server started has been followed by a start.
  BmcState found;
  found.bootFlags[0] = 0x80;
  IpmiModel later(found, clock, {});
  clock.Advance(600 * kSecond);
  EXPECT_EQ(later.Request(0, kGet, Bytes{5, 0, 0})->data[2], 0x80);
}

TEST_F(Parameters, BlocksBuildTheTableAndTheFirstBeginsANewOne) {
  state.botBlockSize = 4;
  EXPECT_EQ(Ask(kSet, {0x7D, 0, 1, 1, 2, 3, 4}).completion, 0);
  EXPECT_EQ(Ask(kSet, {0x7D, 0, 2, 5, 6, 7, 8}).completion, 0);
  EXPECT_EQ(Ask(kSet, {0x7D, 0, 2, 9, 9, 9, 9}).completion, 0);     // sent again
  EXPECT_EQ(Ask(kSet, {0x7D, 0, 9, 1, 1, 1, 1}).completion, 0xC9);  // a gap
  EXPECT_EQ(state.bootOrderTable, (Bytes{1, 2, 3, 4, 9, 9, 9, 9}));
  EXPECT_EQ(Ask(kSet, {0x7D, 0, 1, 0, 0, 0, 0}).completion, 0);
  EXPECT_EQ(state.bootOrderTable, Bytes(4));
}

TEST(BootFlagWords, WordsAndBytesCorrespond) {
  const struct {
    std::vector<std::string> words;
    std::array<std::uint8_t, 5> flags;
    const char* text;
  } cases[] = {
      {{"pxe"}, {0x80, 0x04, 0, 0, 0}, "pxe"},
      {{"disk", "--persistent"}, {0xC0, 0x08, 0, 0, 0}, "disk persistent"},
      {{"safe", "efi"}, {0xA0, 0x0C, 0, 0, 0}, "safe efi"},
      {{"diag"}, {0x80, 0x10, 0, 0, 0}, "diag"},
      {{"cdrom", "efi", "persistent"}, {0xE0, 0x14, 0, 0, 0}, "cdrom persistent efi"},
      {{"bios"}, {0x80, 0x18, 0, 0, 0}, "bios"},
      {{"floppy", "instance=2"}, {0x80, 0x3C, 0, 0, 0x12}, "floppy instance=2"},
      {{"none"}, {0x80, 0, 0, 0, 0}, "none"},
  };
  for (const auto& c : cases) {
    BmcState state;
    std::string error;
    ASSERT_TRUE(SetBootFlags(state, c.words, error)) << error;
    EXPECT_EQ(state.bootFlags, c.flags) << c.text;
    EXPECT_EQ(state.acknowledge, 1);
    EXPECT_EQ(BootFlagsText(state), c.text);
  }
}

TEST(BootFlagWords, WrongWordsChangeNothing) {
  const std::vector<std::string> cases[] = {
      {}, {"tape"}, {"efi"}, {"pxe", "disk"}, {"pxe", "instance=16"}, {"pxe", "instance="}, {"pxe", "instance=1x"}};
  for (const auto& words : cases) {
    BmcState state;
    std::string error;
    EXPECT_FALSE(SetBootFlags(state, words, error));
    EXPECT_NE(error.find("cdrom"), std::string::npos) << error;
    EXPECT_EQ(state, BmcState{});
  }
}

}  // namespace
}  // namespace sim
