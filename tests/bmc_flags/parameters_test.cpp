// Waits and tries of the System Boot Options' requests.
#include "bmc/boot_options_parameters.h"

#include <array>

#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

class ParameterRequests : public BmcFixture {
 protected:
  // The first `count` requests fail.
  void FailFirst(std::uint64_t count) {
    sent = 0;
    bmc().Transport().onRequest = [this, count](std::uint64_t) {
      return ++sent <= count ? std::optional<EFI_STATUS>(EFI_TIMEOUT) : std::nullopt;
    };
  }
  bds::IpmiTransport& transport() { return *bmc().Transport().Protocol(); }
  std::uint64_t sent = 0;
};

TEST_F(ParameterRequests, TheWaitEndsWithTheAnswerThatIsClear) {
  for (const std::uint64_t busy : {0, 1, 10, 11, 20}) {
    SCOPED_TRACE(busy);
    NextBoot();
    std::uint64_t asked = 0;
    bmc().Transport().onRequest = [&](std::uint64_t) {
      constexpr std::uint8_t kInProgress[] = {1, 2, 3};  // either bit; the bits above them say nothing
      bmc().State().setInProgress = asked < busy ? kInProgress[asked % 3] : 0xFC;
      ++asked;
      return std::nullopt;
    };
    const sim::Ticks start = clock().Now();
    const EFI_STATUS status = bds::WaitSetInProgressClear(transport(), bds::WaitLog::Nothing);
    EXPECT_EQ(status, busy < 11 ? EFI_SUCCESS : EFI_TIMEOUT);
    EXPECT_EQ(asked, std::min<std::uint64_t>(busy + 1, 11));
    EXPECT_GE(clock().Now() - start, std::min<std::uint64_t>(busy, 11) * sim::kMillisecond);
    EXPECT_EQ(Logged("IPMI:WaitSetInProgressClear TimeOut\n"), busy >= 11);
  }
}

TEST_F(ParameterRequests, FiveTriesTwoSecondsApart) {
  for (const std::uint64_t failures : {0, 1, 4, 5}) {
    SCOPED_TRACE(failures);
    NextBoot();
    FailFirst(failures);
    const sim::Ticks start = clock().Now();
    std::array<UINT8, 18> answer;
    const EFI_STATUS status = bds::GetBootOptionsPersistently(transport(), bds::kBotBlockSize, 1, answer);
    EXPECT_EQ(status, failures < 5 ? EFI_SUCCESS : EFI_TIMEOUT);
    EXPECT_EQ(sent, std::min<std::uint64_t>(failures + 1, 5));
    EXPECT_EQ((clock().Now() - start) / sim::kSecond, 2 * failures);
    EXPECT_EQ(answer[2], failures < 5 ? '_' : 0);
  }
  std::string log = "GetBootOptions Parameter=78\n";
  for (const char trial : {'0', '1', '2', '3', '4'}) {
    log.append("Trial ").append(1, trial).append(" GetBootOptions failed=8000000000000012 for Parameter=78\n");
  }
  EXPECT_EQ(Log(), log);
}

TEST_F(ParameterRequests, AShortAnswerLeavesZerosBehindIt) {
  std::array<UINT8, 7> answer;
  answer.fill(0xEE);
  EXPECT_EQ(bds::GetBootOptions(transport(), bds::kSetInProgress, answer), EFI_SUCCESS);
  EXPECT_EQ(answer, (std::array<UINT8, 7>{1, 0, 0, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace test
