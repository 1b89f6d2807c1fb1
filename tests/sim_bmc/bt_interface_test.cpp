// The block-transfer registers from the host's side, driven by hand: the handshake, its strictness, and the faults.
#include "sim/bmc/bt_interface.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

constexpr std::uint16_t kCtrl = BtInterface::kControl;
constexpr std::uint16_t kBuf = BtInterface::kBuffer;
constexpr std::uint16_t kMask = BtInterface::kInterruptMask;

class Registers : public testing::Test {
 protected:
  void Put(const Frame& frame) {
    bt.Write(kCtrl, 0x01);
    for (const std::uint8_t byte : frame) {
      bt.Write(kBuf, byte);
    }
    bt.Write(kCtrl, 0x04);
  }
  // Waits for the answer as a host does; false when none comes within the time.
  bool Await(Ticks patience = 6 * kSecond) {
    for (const Ticks end = clock.Now() + patience; clock.Now() < end; clock.Advance(kMillisecond)) {
      if ((bt.Read(kCtrl) & 0x08) != 0) {
        return true;
      }
    }
    return false;
  }
  Frame Take() {
    bt.Write(kCtrl, 0x40);
    bt.Write(kCtrl, 0x0A);
    Frame frame{bt.Read(kBuf)};
    for (int left = frame[0]; left > 0; --left) {
      frame.push_back(bt.Read(kBuf));
    }
    bt.Write(kCtrl, 0x40);
    return frame;
  }
  Frame Ask(const Frame& frame) {
    Put(frame);
    return Await() ? Take() : Frame{};
  }
  void Add(const char* words) {
    std::string error;
    const auto fault = BmcFault::Parse(words, error);
    ASSERT_TRUE(fault) << error;
    bt.AddFault(*fault);
  }

  Clock clock;
  Counters counters;
  FileStore store;
  FileServer server{store};
  std::vector<std::string> writes;
  std::vector<std::string> traffic;
  BtInterface bt{server,
                 clock,
                 counters,
                 {[this](std::string_view kind) { writes.emplace_back(kind); },
                  {},
                  [this](const std::string& line) { traffic.push_back(line); },
                  {},
                  {}}};
  const Frame open = MakeResponse(12, std::vector<std::uint8_t>{'f'});
  const Frame create = MakeResponse(6, std::vector<std::uint8_t>{'f'});
  const Frame opened{4, 12, 1, 0, 0xEF};
};

TEST_F(Registers, AHostThatBreaksTheHandshakeIsComplainedAbout) {
  bt.Write(kMask, 0x10);
  const struct {
    const char* says;
    std::function<void()> act;
  } cases[] = {
      {"without CLR_WR_PTR", [this] { bt.Write(kBuf, 1); }},
      {"without a response", [this] { bt.Write(kCtrl, 0x0A); }},
      {"past the response",
       [this] {
         bt.Write(kCtrl, 0x40);
         bt.Read(kBuf);
         bt.Write(kCtrl, 0x40);
       }},
      {"without H_BUSY", [this] { bt.Read(kBuf); }},
      {"damaged request",
       [this] {
         Put({4, 12, 'f', 0});
         Await(10 * kMillisecond);
       }},
      {"while the BMC has the request",
       [this] {
         Put(open);
         bt.Write(kBuf, 1);
         Await();
         Take();
       }},
      {"while a request waits",
       [this] {
         Put(open);
         bt.Write(kCtrl, 0x04);
         Await();
         Take();
       }},
      {"while the host reads",
       [this] {
         bt.Write(kCtrl, 0x40);
         Put(open);
         bt.Write(kCtrl, 0x40);
         Await();
         Take();
       }},
      {"without the lock",
       [this] {
         bt.Write(kMask, 0);
         Ask(open);
       }},
  };
  for (const auto& c : cases) {
    ASSERT_FALSE(counters.HasComplaint(c.says)) << c.says;
    c.act();
    EXPECT_TRUE(counters.HasComplaint(c.says)) << c.says;
  }
}

TEST_F(Registers, ADamagedRequestIsNotAnswered) {
  Put({3, 9, 1, 0});
  EXPECT_FALSE(Await());
}

TEST_F(Registers, FaultsDoWhatTheirNamesSay) {
  store.Write("f", {});
  bt.Write(kMask, 0x10);
  Add("wrong-length");
  EXPECT_EQ(Ask(open)[0], 7);
  Add("wrong-echo");
  const Frame echo = Ask(open);
  EXPECT_NE(echo[1], 12);
  EXPECT_TRUE(IsWellFormedFrame(echo));
  Add("bad-checksum:2");
  EXPECT_FALSE(IsWellFormedFrame(Ask(open)));
  EXPECT_FALSE(IsWellFormedFrame(Ask(open)));
  EXPECT_TRUE(IsWellFormedFrame(Ask(open)));
  EXPECT_EQ(counters.Of("bmc.retries"), 2U);
  Add("refuse-open");
  EXPECT_EQ(Ask(open)[0], 3);
  Add("lying-length:200");
  EXPECT_EQ(Ask(open).size(), 201U);
  EXPECT_EQ(counters.ComplaintCount(), 0U);
  Add("late:4000");
  Put(open);
  EXPECT_FALSE(Await(4 * kSecond));
  EXPECT_TRUE(Await(10 * kMillisecond));
  Take();
  Add("no-answer");
  EXPECT_EQ(Ask(open), Frame{});
  EXPECT_EQ(counters.Of("bmc.timeouts"), 1U);
  EXPECT_EQ(Ask(open)[0], 4);
  constexpr const char* kEnds[] = {"[wrong-length]",
                                   "[wrong-echo]",
                                   "[bad-checksum]",
                                   "[sent again, bad-checksum]",
                                   "[sent again]",
                                   "[refuse-open]",
                                   "[lying-length]",
                                   "[late]",
                                   "[no-answer]",
                                   "timeout: no answer",
                                   "exchange 10 > 03 0c 66 8b < 04 0c 07 00 e9"};
  ASSERT_EQ(traffic.size(), std::size(kEnds)) << testing::PrintToString(traffic);
  for (std::size_t i = 0; i < traffic.size(); ++i) {
    EXPECT_TRUE(traffic[i].ends_with(kEnds[i])) << traffic[i];
  }
}

TEST_F(Registers, ALateAnswerIsKeptUntilItIsTakenAndTheNextWaitsForIt) {
  store.Write("f", {});
  bt.Write(kMask, 0x10);
  Add("late:6000");
  Put(open);
  ASSERT_FALSE(Await(5 * kSecond));
  Put(MakeResponse(9, std::vector<std::uint8_t>{1, 0}));
  ASSERT_TRUE(Await());
  EXPECT_EQ(Take(), opened);
  ASSERT_TRUE(Await());
  EXPECT_EQ(Take(), (Frame{2, 9, 0xF5}));
}

TEST_F(Registers, AFaultBeginsAtItsExchange) {
  store.Write("f", {});
  bt.Write(kMask, 0x10);
  Add("refuse-open@3");
  EXPECT_EQ(Ask(open)[0], 4);
  EXPECT_EQ(Ask(open)[0], 4);
  EXPECT_EQ(Ask(open)[0], 3);
  EXPECT_EQ(Ask(open)[0], 4);
}

}  // namespace
}  // namespace sim
