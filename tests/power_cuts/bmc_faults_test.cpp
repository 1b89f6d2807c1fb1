// A whole boot under every fault of the BMC's file interface, on a day like any other, before anything was saved, and
// when everything has to be restored: it starts the right option within the time that docs/boot-time.md states, and
// when the fault is gone nothing that the user made is missing.
#include "tests/whole_boots/users_server.h"

namespace sim::test {
namespace {

enum Before { kSettled, kNoCopies, kNvramLost };
constexpr const char* kBefore[] = {"settled", "no copies", "NVRAM lost"};

struct Fault {
  const char* words;
  std::uint64_t retries;  // and timeouts, on the settled server
  std::uint64_t timeouts;
  std::uint64_t seconds;  // that the steps with the BMC may take at most, beyond what they take without a fault
  // The BMC empties BootOrder when it is opened for writing and then does not take it, or says that it has no files and
  // takes one all the same. Options without an order are a damaged copy, and no later boot saves any more; what was
  // lost in NVRAM too, and is not restored the first time, is lost.
  bool emptiesOrder = false;
  bool losesRestore = false;
};

const Fault kFaults[] = {
    {"h2b-stuck", 0, 1, 2},
    {"h2b-stuck:3", 0, 3, 4},
    {"h2b-stuck:always", 0, 4, 11},
    {"no-answer", 0, 1, 6},
    {"no-answer:2", 0, 2, 11},
    {"no-answer:always", 0, 2, 15},
    {"late:100", 0, 0, 1},
    {"late:100xalways", 0, 0, 5},
    {"late:6000", 0, 1, 7},
    {"late:6000xalways", 0, 2, 15},
    {"wrong-length", 0, 0, 1},
    {"wrong-length:always", 0, 0, 1},
    {"wrong-echo", 0, 0, 1},
    {"wrong-echo:always", 0, 0, 1},
    {"bad-checksum@3", 1, 0, 2},
    {"bad-checksum:3@3", 3, 0, 4},
    {"bad-checksum:99@3", 99, 0, 101},
    {"bad-checksum:100@3", 99, 0, 101},
    {"bad-checksum:always", 99, 0, 101},
    {"lock-held", 0, 0, 1},
    {"lock-held:always", 0, 0, 1},
    {"refuse-open", 0, 0, 1},
    {"refuse-open:always", 0, 0, 1},
    {"refuse-open@8", 0, 0, 1, false, true},  // the BMC denies the copy of an option, and is believed
    {"refuse-write", 0, 0, 1},
    {"refuse-write:always", 0, 0, 1, true},
    {"refuse-rename:always", 0, 0, 1},
    {"lying-length:0xalways", 0, 0, 1},
    {"lying-length:3", 0, 0, 1},
    {"lying-length:3xalways", 0, 0, 1, true, true},
    {"lying-length:5", 0, 0, 1},
    {"lying-length:64xalways", 0, 0, 1},
    {"lying-length:255", 0, 0, 1},
    {"lying-length:255xalways", 0, 0, 1},
};

std::uint64_t CountOf(const BootReport& report, const char* name) {
  const auto found = report.counts.find(name);
  return found == report.counts.end() ? 0 : found->second;
}

Ticks TimeWithFiles(const BootReport& report) {
  Ticks time = 0;
  for (const StepReport& step : report.steps) {
    const bool uses = step.name.find("BMC") != std::string::npos || step.name == "CheckZephan_EFIBootSupport";
    time += uses ? step.duration : 0;
  }
  return time;
}

class BmcFaults : public testing::Test, protected UsersServer {
 protected:
  Kept Start(Before before) const {
    Kept kept = usual_;
    if (before == kNoCopies) {
      kept.files.clear();
      std::erase_if(kept.variables, [](const Variable& one) { return one.name == u"BootOptionRestored"; });
    }
    if (before == kNvramLost) {
      kept.variables.clear();
    }
    return kept;
  }

  // The first save is followed by a reset, and the boot behind it has the fault too.
  static BootReport BootWith(Server& server, const BootRequest& request) {
    BootReport report = server.Boot(request);
    return report.outcome.end == BootEnd::Reset ? server.Boot(request) : report;
  }

  void CheckBoot(const BootReport& report, Before before, const Fault& fault, Ticks usualTime) const {
    ExpectClean(report, fault.words);
    ExpectSoundOrder(report, fault.words);
    EXPECT_TRUE(report.Started()) << BootEndName(report.outcome.end) << " " << report.outcome.text;
    EXPECT_LE(TimeWithFiles(report), usualTime + fault.seconds * kSecond);
    if (before == kSettled) {
      EXPECT_EQ(CountOf(report, "bmc.retries"), fault.retries);
      EXPECT_EQ(CountOf(report, "bmc.timeouts"), fault.timeouts);
    }
    // Without variables and without copies to hear of there is only what the firmware makes itself.
    const bool unknown = before == kNvramLost && report.bootOrder != own_;
    if (!unknown) {
      EXPECT_EQ(report.bootOrder, own_);
      EXPECT_EQ(report.bootCurrent, kFirst);
    }
  }

  void CheckAfter(Server& server, Before before, const Fault& fault) const {
    const BootReport last = BootUntilSettled(server).back();
    const Kept kept = Take(server);
    if (before == kNvramLost && fault.losesRestore) {
      EXPECT_NE(last.bootOrder, own_);
      return;
    }
    EXPECT_EQ(last.bootOrder, own_);
    EXPECT_EQ(last.bootCurrent, kFirst);
    CheckUsersOptions(kept);
    EXPECT_EQ(CopiesAreComplete(kept), before == kNoCopies || !fault.emptiesOrder);
  }
};

TEST_F(BmcFaults, EveryFaultLeavesABootAndNothingIsMissingBehindIt) {
  for (const Before before : {kSettled, kNoCopies, kNvramLost}) {
    const Kept start = Start(before);
    const Ticks usualTime = TimeWithFiles(BootWith(*Place(description_, start), {}));
    for (const Fault& fault : kFaults) {
      SCOPED_TRACE(fmt::format("{}, {}", fault.words, kBefore[before]));
      const auto server = Place(description_, start);
      BootRequest request;
      request.faults = {fault.words};
      CheckBoot(BootWith(*server, request), before, fault, usualTime);
      CheckAfter(*server, before, fault);
    }
  }
}

// Boot after boot, and with the copies kept for a BMC that comes back.
TEST_F(BmcFaults, ADeadBmcCostsABoundedTimeHoweverOften) {
  for (const char* words : {"no-answer:always", "h2b-stuck:always", "lock-held:always"}) {
    SCOPED_TRACE(words);
    const auto server = Place(description_, Start(kNvramLost));
    for (int boot = 0; boot < 4; ++boot) {
      BootRequest request;
      request.faults = {words};
      const BootReport report = server->Boot(request);
      ExpectClean(report, words);
      EXPECT_TRUE(report.Started());
      EXPECT_LE(report.outcome.time, 20 * kSecond);
    }
    EXPECT_EQ(Take(*server).files, usual_.files);
  }
}

// Good answers that come late are waited for, but not for ever: many options are many exchanges.
class CrowdedServer : public testing::Test, protected UsersServer {
 protected:
  CrowdedServer() : UsersServer(false, false, 40) {}
};

TEST_F(CrowdedServer, ASlowBmcCostsABoundedTime) {
  Kept lost = usual_;
  lost.variables.clear();
  for (const Kept& start : {usual_, lost}) {
    const auto server = Place(description_, start);
    BootRequest request;
    request.faults = {"late:4000xalways"};
    const BootReport report = server->Boot(request);
    ExpectClean(report, "slow BMC");
    EXPECT_TRUE(report.Started());
    EXPECT_LE(report.outcome.time, 330 * kSecond);
    EXPECT_EQ(BootUntilSettled(*server).back().bootOrder, own_);
    CheckUsersOptions(Take(*server));
  }
}

TEST_F(BmcFaults, ThePowerLostInAnExchangeIsNoFaultOfTheNextBoot) {
  const auto server = Place(description_, usual_);
  BootRequest request;
  request.faults = {"power-loss@9"};
  EXPECT_EQ(server->Boot(request).outcome.end, BootEnd::PowerLost);
  EXPECT_EQ(server->Boot({}).bootCurrent, kFirst);
}

}  // namespace
}  // namespace sim::test
