// Faults in words.
#include "sim/bmc/bt_fault.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

TEST(BmcFaultWords, EveryFormIsUnderstood) {
  using Kind = BmcFault::Kind;
  const struct {
    const char* words;
    Kind kind;
    std::uint64_t value;
    std::uint64_t count;
    std::uint64_t first;
  } cases[] = {
      {"h2b-stuck", Kind::H2bStuck, 0, 1, 1},
      {"no-answer:always", Kind::NoAnswer, 0, BmcFault::kAlways, 1},
      {"late:6000", Kind::Late, 6000, 1, 1},
      {"late:20x3@4", Kind::Late, 20, 3, 4},
      {"wrong-length:2", Kind::WrongLength, 0, 2, 1},
      {"wrong-echo@9", Kind::WrongEcho, 0, 1, 9},
      {"bad-checksum:3", Kind::BadChecksum, 0, 3, 1},
      {"lock-held:always@2", Kind::LockHeld, 0, BmcFault::kAlways, 2},
      {"refuse-open", Kind::RefuseOpen, 0, 1, 1},
      {"refuse-write:5", Kind::RefuseWrite, 0, 5, 1},
      {"refuse-rename", Kind::RefuseRename, 0, 1, 1},
      {"lying-length:255xalways", Kind::LyingLength, 255, BmcFault::kAlways, 1},
      {"power-loss@17", Kind::PowerLoss, 0, 1, 17},
  };
  for (const auto& c : cases) {
    std::string error;
    const auto fault = BmcFault::Parse(c.words, error);
    ASSERT_TRUE(fault) << c.words << ": " << error;
    EXPECT_EQ(fault->kind, c.kind) << c.words;
    EXPECT_EQ(fault->value, c.value) << c.words;
    EXPECT_EQ(fault->count, c.count) << c.words;
    EXPECT_EQ(fault->first, c.first) << c.words;
  }
}

TEST(BmcFaultWords, WrongWordsNameThemselvesAndWhatIsKnown) {
  for (const char* words : {"", "@1", "bad", "bad-checksum:", "bad-checksum:0", "bad-checksum:-1", "bad-checksum:3x2",
                            "bad-checksum@0", "bad-checksum@x", "late", "late:", "late:x3", "late:5x", "late:99999999",
                            "lying-length:256", "no-answer:99999999999999999999"}) {
    std::string error;
    EXPECT_FALSE(BmcFault::Parse(words, error)) << words;
    EXPECT_NE(error.find(std::string("\"") + words + "\""), std::string::npos) << error;
    EXPECT_NE(error.find("bad-checksum[:COUNT]"), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace sim
