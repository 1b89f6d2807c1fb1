// One exchange: the register accesses in their order, the frames' bytes, and what each fault makes of it.
#include "bmc/bt_exchange.h"

#include <cstring>

#include "bmc/bt_file.h"
#include "sim/bmc/bt_interface.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

using bds::BT_END;
using bds::BT_FILE_CONTEXT;

class Exchange : public BmcFixture {
 protected:
  // Writes down what passes over the three ports: "w620=01", "r621=04"; a repeated poll of the control port once.
  void Record() {
    auto note = [this](char way, std::uint16_t port, std::uint32_t value) {
      char text[16];
      std::snprintf(text, sizeof(text), "%c%03x=%02x", way, port, value);
      if (way == 'w' || port != 0x620 || accesses.empty() || accesses.back() != text) {
        accesses.emplace_back(text);
      }
    };
    ports().Claim(
        0x620, 0x622,
        [this, note](std::uint16_t port, unsigned) {
          const std::uint32_t value = bmc().Interface().Read(port);
          note('r', port, value);
          return value;
        },
        [this, note](std::uint16_t port, std::uint32_t value, unsigned) {
          note('w', port, value);
          bmc().Interface().Write(port, static_cast<std::uint8_t>(value));
        });
  }
  // An answer of the test's own to every request, at once.
  void AnswerWith(sim::Frame frame) {
    ports().Claim(
        0x620, 0x622,
        [this, frame](std::uint16_t port, unsigned) -> std::uint32_t {
          if (port == 0x620) {
            return 0x08;
          }
          return port == 0x621 && position < frame.size() ? frame[position++] : 0xFF;
        },
        [this](std::uint16_t port, std::uint32_t value, unsigned) {
          position = port == 0x620 && (value & 0x02) != 0 ? 0 : position;
        });
  }
  std::vector<std::string> accesses;
  std::size_t position = 0;
};

TEST_F(Exchange, AnOpenTakesTheLockShakesHandsAndGivesTheLockBack) {
  files().Write("ab", {});
  Record();
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "ab", bds::BT_OPEN_FILE), bds::BT_DONE);
  EXPECT_EQ(accesses,
            (std::vector<std::string>{"r622=00", "r622=00", "w622=10",  // the lock is free, and taken
                                      "r620=00",                        // the interface is free
                                      "w620=01", "w621=04", "w621=0c", "w621=61", "w621=62", "w621=2d",  // request
                                      "w620=04", "r620=04", "r620=08",                        // handed over, answered
                                      "w620=40", "w620=0a",                                   // the answer is taken
                                      "r621=04", "r621=0c", "r621=01", "r621=00", "r621=ef",  // response
                                      "w620=40",                                              // done with it
                                      "r622=10", "w622=00"}));                                // the lock is given back
  EXPECT_EQ(context.Handle, 1);
  EXPECT_EQ(counters().ComplaintCount(), 0U);
}

// What a single open makes of each fault.
TEST_F(Exchange, EveryFaultHasItsResultAndItsCost) {
  const struct {
    const char* fault;
    UINT8 result;
    BT_END end;
    std::uint64_t exchanges;
    UINT32 retries;
    UINT32 timeouts;
    std::uint64_t milliseconds;  // waited at least that, and at most 2% more
  } cases[] = {
      {"h2b-stuck", bds::BT_FAILED, BT_END::Silent, 0, 0, 1, 1000},
      {"no-answer", bds::BT_FAILED, BT_END::Silent, 1, 0, 1, 5000},
      {"late:4900", bds::BT_DONE, BT_END::Valid, 1, 0, 0, 4900},
      {"late:5200", bds::BT_FAILED, BT_END::Silent, 1, 0, 1, 5000},
      {"wrong-length", bds::BT_FAILED, BT_END::Garbled, 1, 0, 0, 0},
      {"wrong-echo", bds::BT_FAILED, BT_END::Garbled, 1, 0, 0, 0},
      {"refuse-open", bds::BT_FAILED, BT_END::Refused, 1, 0, 0, 0},
      {"bad-checksum", bds::BT_DONE, BT_END::Valid, 2, 1, 0, 1000},
      {"bad-checksum:99", bds::BT_DONE, BT_END::Valid, 100, 99, 0, 99000},
      {"bad-checksum:100", bds::BT_FAILED, BT_END::Silent, 100, 100, 0, 100000},
      {"bad-checksum:always", bds::BT_FAILED, BT_END::Silent, 100, 100, 0, 100000},
      {"lock-held", bds::BT_LOCKED, BT_END::Locked, 0, 0, 0, 0},
      {"lying-length:5", bds::BT_FAILED, BT_END::Garbled, 1, 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    NextBoot();
    files().Write("f", {1});
    AddFault(c.fault);
    const std::uint64_t before = bmc().Interface().Exchanges();
    const sim::Ticks start = clock().Now();
    BT_FILE_CONTEXT context;
    context.IsOpen = 1;
    EXPECT_EQ(bds::BtOpenFile(context, "f", bds::BT_OPEN_FILE), c.result);
    EXPECT_EQ(context.LastEnd, c.end);
    EXPECT_EQ(bmc().Interface().Exchanges() - before, c.exchanges);
    EXPECT_EQ(context.RetryCount, c.retries);
    EXPECT_EQ(context.TimeoutCount, c.timeouts);
    EXPECT_EQ(context.SuccessCount, c.result == bds::BT_DONE ? 1U : 0U);
    EXPECT_EQ(context.IsOpen, c.result == bds::BT_FAILED ? 0 : 1);
    const std::uint64_t waited = (clock().Now() - start) / sim::kMillisecond;
    EXPECT_GE(waited, c.milliseconds);
    EXPECT_LE(waited, c.milliseconds * 103 / 100 + 3);
    EXPECT_FALSE(bmc().Interface().LockTaken());
  }
  EXPECT_EQ(counters().ComplaintCount(), 0U);
}

TEST_F(Exchange, NoLengthByteMakesItWritePastResponseData) {
  for (unsigned length = 0; length <= 0xFF; ++length) {
    for (const UINT8 expected : std::initializer_list<UINT8>{0, 2, 4}) {
      NextBoot();
      sim::Frame frame(length + 1, 0x5A);
      frame[0] = static_cast<std::uint8_t>(length);
      if (length > 1) {
        frame[1] = 7;
        unsigned sum = 0;
        for (unsigned i = 0; i < length; ++i) {
          sum += frame[i];
        }
        frame[length] = static_cast<std::uint8_t>(-sum);
      }
      AnswerWith(frame);
      BT_FILE_CONTEXT context;
      context.Opcode = 7;
      context.DataOffset = 0xC3;
      const UINT8 result = bds::BtExchange(context, 4, expected);
      const bool fits = length >= 2 && length <= 64;
      EXPECT_EQ(result, fits && (expected == 0 || expected == length) ? 0 : 1) << length;
      // The byte behind ResponseData.
      EXPECT_EQ(context.DataOffset, result == 0 && expected == 0 ? 2 : 0xC3) << length;
      EXPECT_EQ(context.ResponseLength, result == 0 && expected == 0 ? length - 2 : 0) << length;
    }
  }
}

TEST_F(Exchange, ARequestOfNoPossibleLengthIsNotSent) {
  BT_FILE_CONTEXT context;
  for (const UINT8 length : std::initializer_list<UINT8>{0, 1, 64, 255}) {
    EXPECT_EQ(bds::BtExchange(context, length, 0), 1) << int{length};
    EXPECT_TRUE(bds::BtUnheard(context));
  }
  EXPECT_EQ(bmc().Interface().Exchanges(), 0U);
}

// Behind a request that was given up, or whose answer was another's: the file is opened at that try, and what is
// written goes into it and no other.
TEST_F(Exchange, NoOldAnswerIsTakenForANewOne) {
  const struct {
    const char* fault;
    int tries;
  } cases[] = {{"late:5200", 1}, {"late:9900", 1},   {"late:10100", 1}, {"late:10900", 1},
               {"no-answer", 1}, {"no-answer:2", 1}, {"wrong-echo", 1}, {"wrong-length:3", 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    NextBoot();
    files().Write("f", {1});
    AddFault(c.fault);
    BT_FILE_CONTEXT first;
    ASSERT_EQ(bds::BtOpenFile(first, "f", bds::BT_CREATE_FILE), bds::BT_FAILED);
    files().Write("f", {1});
    BT_FILE_CONTEXT second;
    int tries = 1;
    while (bds::BtOpenFile(second, "g", bds::BT_CREATE_FILE) != bds::BT_DONE && tries < 5) ++tries;
    EXPECT_EQ(tries, c.tries);
    EXPECT_EQ(bds::BtWriteFile(second, "data", 4), bds::BT_DONE);
    EXPECT_EQ(bds::BtCloseFile(second), 0);
    EXPECT_EQ(files().Read("f"), Bytes{1});
    EXPECT_EQ(files().Read("g"), (Bytes{'d', 'a', 't', 'a'}));
    EXPECT_EQ(counters().ComplaintCount(), 0U);
  }
}

TEST_F(Exchange, AStuckTimerDoesNotHangIt) {
  ports().Claim(0x408, 0x40B, [](std::uint16_t, unsigned) { return 0xFFFFFFFFU; }, {});
  AddFault("no-answer:always");
  BT_FILE_CONTEXT context;
  EXPECT_EQ(bds::BtOpenFile(context, "f", bds::BT_OPEN_FILE), bds::BT_FAILED);
  EXPECT_EQ(context.TimeoutCount, 1U);
}

}  // namespace
}  // namespace test
