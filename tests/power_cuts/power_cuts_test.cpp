// The power goes after every single write to NVRAM or to the BMC and after every exchange with it, in boots that have a
// boot request, an order to put back, copies to save or to restore. Whatever the moment, the boots that follow start
// the right option, and nothing that a user made is lost.
#include <tuple>

#include "tests/whole_boots/users_server.h"

namespace sim::test {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr std::uint64_t kStride = 4;  // cuts are sampled, beginning with the first
#else
constexpr std::uint64_t kStride = 1;
#endif
constexpr const char* kKinds[] = {"nvram", "bmc", "bmc-exchange"};

// What the boot under test finds.
enum class Before {
  Settled,       // a server that saves its copies again, as on every day
  AfterRequest,  // the boot before honoured the request; the order is still the changed one
  NoCopies,      // nothing on the BMC, and nothing ever restored from it
  NotRestored,   // the boot behind the first save: copies, all variables, nothing ever restored
  NvramLost,     // copies on the BMC, no variable at all
};

struct Scenario {
  const char* name;
  Before before = Before::Settled;
  std::vector<std::string> request = {};  // in ipmitool's words
  bool managed = false;
  std::uint8_t acknowledge = 1;  // who has not handled the request; bit 0 is the firmware
  // The request is acknowledged and cleared before the order changes, so a cut behind that takes a one-time request
  // with it: it is honoured at most once, never twice.
  bool mayLoseRequest = false;
  // The BMC empties BootOrder when it is opened for writing. A cut right behind leaves options without an order, which
  // is taken for a damaged copy, and no later boot saves any more.
  bool mayStopCopies = true;
  unsigned crowd = 0;           // further options of the user's
  std::uint64_t moments = 999;  // of each kind that are cut, from the first on
};
void PrintTo(const Scenario& value, std::ostream* out) { *out << value.name; }

const Scenario kScenarios[] = {
    {.name = "NoRequest"},
    {.name = "OneTimeEfiRequest", .request = {"pxe", "efi"}, .mayLoseRequest = true},
    {.name = "OneTimeLegacyRequest", .request = {"pxe"}, .mayLoseRequest = true},
    // With another party's bit left set, the cleared bit of the firmware says that the flags were handled.
    {.name = "OneTimeRequestOthersWatch", .request = {"pxe", "efi"}, .acknowledge = 0x1F, .mayLoseRequest = true},
    // Kept in NVRAM before it is acknowledged.
    {.name = "PersistentEfiRequest", .request = {"pxe", "efi", "persistent"}},
    {.name = "PersistentLegacyRequest", .request = {"pxe", "persistent"}},
    {.name = "OrderPutBack", .before = Before::AfterRequest, .request = {"pxe", "efi"}},
    {.name = "OrderAndLegacyOptionPutBack", .before = Before::AfterRequest, .request = {"pxe"}},
    {.name = "FirstSave", .before = Before::NoCopies, .mayStopCopies = false},
    {.name = "RestoreBehindFirstSave", .before = Before::NotRestored},
    // The order fills two pieces of a file, and a cut leaves the first.
    {.name = "FirstSaveOfALongOrder", .before = Before::NoCopies, .mayStopCopies = false, .crowd = 30, .moments = 9},
    {.name = "Restore", .before = Before::NvramLost},
    {.name = "RestoreWithRequest", .before = Before::NvramLost, .request = {"pxe", "efi"}, .mayLoseRequest = true},
    {.name = "Managed", .managed = true},
    {.name = "ManagedOneTimeRequest", .request = {"pxe", "efi"}, .managed = true, .mayLoseRequest = true},
};

bool WantsCsm(const Scenario& scenario) {
  return !scenario.request.empty() && std::ranges::find(scenario.request, "efi") == scenario.request.end();
}

class PowerCuts : public testing::TestWithParam<Scenario>, protected UsersServer {
 protected:
  PowerCuts() : UsersServer(WantsCsm(GetParam()), GetParam().managed, GetParam().crowd), scenario_(GetParam()) {
    start_ = Prepare();
  }

  void Ask(Kept& kept) const {
    std::string error;
    ASSERT_TRUE(scenario_.request.empty() || SetBootFlags(kept.bmc, scenario_.request, error)) << error;
    kept.bmc.acknowledge = scenario_.request.empty() ? 0 : scenario_.acknowledge;
  }

  Kept Prepare() {
    Kept kept = usual_;
    if (scenario_.before == Before::NoCopies) {
      kept.files.clear();
    }
    if (scenario_.before == Before::NoCopies || scenario_.before == Before::NotRestored) {
      std::erase_if(kept.variables, [](const Variable& one) { return one.name == u"BootOptionRestored"; });
    }
    if (scenario_.before == Before::NvramLost) {
      kept.variables.clear();
    }
    Ask(kept);
    if (scenario_.before != Before::AfterRequest) {
      return kept;
    }
    const auto server = Place(description_, kept);
    const BootReport report = server->Boot({});
    EXPECT_EQ(report.bootCurrent, requested_);
    return Take(*server);
  }

  // The boot without a cut: how many moments there are to cut it, and every value that its variables had.
  void RunWhole() {
    const auto server = Place(description_, start_);
    const auto look = [&] {
      for (const auto& [name, bytes] : NonVolatile(server->Variables())) values_[name].insert(bytes);
    };
    look();
    BootRequest request;
    request.beforeStart = [&](Machine& machine) {
      machine.Faults().SetWriteHook([&](std::string_view, std::uint64_t) { look(); });
    };
    request.afterEnd = [&](Machine& machine, const BootOutcome&) {
      for (const char* kind : kKinds) moments_[kind] = machine.Faults().WritesOf(kind);
    };
    const BootReport report = server->Boot(request);
    ExpectClean(report, "boot without a cut");
    look();
    after_ = Take(*server);
    if (report.outcome.end != BootEnd::Reset) {
      EXPECT_EQ(report.bootCurrent, AsksNow() ? requested_ : kFirst);
    }
    BootUntilSettled(*server);
    settled_ = Take(*server);
  }

  bool AsksNow() const { return !scenario_.request.empty() && scenario_.before != Before::AfterRequest; }

  // Whether the next boot has a request to honour. A valid one at the BMC that is not marked as handled, or a
  // persistent one that was taken over.
  bool Pending(const Kept& kept) const {
    if (kept.bmc.acknowledge != 0 && (kept.bmc.acknowledge & 1) == 0) {
      return false;
    }
    return (kept.bmc.bootFlags[0] & BmcState::kValid) != 0 || kept.Find(u"IpmiBootFlags") != nullptr;
  }

  void CheckVariables(const Kept& kept, const Server& server) const {
    for (const auto& [name, bytes] : NonVolatile(server.Variables())) {
      const auto known = values_.find(name);
      ASSERT_NE(known, values_.end()) << name;
      EXPECT_TRUE(known->second.contains(bytes)) << name << " has a value that nobody gave it";
    }
    // With a request the restored order is in force before the one that it asks for.
    const bool restored = scenario_.before == Before::NvramLost && kept.Order() == own_;
    EXPECT_TRUE(restored || kept.Order() == start_.Order() || kept.Order() == after_.Order()) << "not one in force";
    if (scenario_.before == Before::NvramLost) {
      return;  // the order is restored before the options that it names
    }
    for (const std::uint16_t number : kept.Order()) {
      const Bytes* option = kept.Find(OptionVariable(number));
      EXPECT_TRUE(option != nullptr && ParseLoadOption(*option)) << number;
    }
    CheckUsersOptions(kept);
  }

  // The copies are those of the variables, or the BMC is left with options and an empty order.
  void CheckCopies(const Kept& kept, const BootReport& last) {
    const bool saved = kept.files.contains("BootOrder") && !kept.files.at("BootOrder").empty();
    if (!saved) {
      ++stopped_;
      EXPECT_NE(last.log.find("INVALID CONDITION DETECTED"), std::string::npos);
      return;
    }
    EXPECT_TRUE(CopiesAreComplete(kept));
  }

  // Which option each of the boots behind the cut has to start.
  std::uint16_t Right(const Kept& cut, std::size_t boot) const {
    const bool persistent = !scenario_.request.empty() && scenario_.request.back() == "persistent";
    if (Pending(cut)) {
      return boot == 0 || persistent || scenario_.managed ? requested_ : kFirst;
    }
    // A managed server does not put its order back.
    return scenario_.managed && !cut.Order().empty() ? cut.Order().front() : kFirst;
  }

  void BootOn(Server& server, const Kept& cut) {
    const std::vector<BootReport> reports = BootUntilSettled(server);
    std::size_t starts = 0;
    for (const BootReport& report : reports) {
      ExpectSoundOrder(report, "boot behind a cut");
      if (report.outcome.end == BootEnd::Reset) continue;
      EXPECT_EQ(report.bootCurrent, Right(cut, starts)) << "start " << starts;
      ++starts;
    }
    const Kept settled = Take(server);
    CheckUsersOptions(settled);
    CheckCopies(settled, reports.back());
    const bool asked = AsksNow() && !Pending(cut);
    lost_ += asked ? 1 : 0;
    if (!scenario_.managed || !asked) {
      const auto wanted = NonVolatile(Place(description_, settled_)->Variables());
      for (const auto& [name, bytes] : NonVolatile(server.Variables())) {
        EXPECT_TRUE(wanted.contains(name) && wanted.at(name) == bytes) << name;
      }
      EXPECT_EQ(NonVolatile(server.Variables()).size(), wanted.size());
    }
  }

  void Cut(const std::string& fault) {
    const auto server = Place(description_, start_);
    BootRequest request;
    request.faults = {fault};
    const BootReport report = server->Boot(request);
    ASSERT_EQ(report.outcome.end, BootEnd::PowerLost) << report.outcome.text;
    ExpectClean(report, "cut boot");
    const Kept cut = Take(*server);
    CheckVariables(cut, *server);
    // What later boots do follows from what is kept, and many exchanges change nothing.
    State state{NonVolatile(server->Variables()), cut.files, cut.bmc};
    if (std::ranges::find(seen_, state) == seen_.end()) {
      seen_.push_back(std::move(state));
      BootOn(*server, cut);
    }
  }

  using State = std::tuple<std::map<std::string, Bytes>, std::map<std::string, FileBytes>, BmcState>;

  const Scenario scenario_;
  Kept start_;    // what the boot under test finds
  Kept after_;    // what it leaves when it is not cut
  Kept settled_;  // and what later boots make of that
  std::map<std::string, std::uint64_t> moments_;
  std::map<std::string, std::set<Bytes>> values_;
  std::vector<State> seen_;  // behind the cuts so far
  unsigned lost_ = 0;        // cuts behind which nobody honours the request
  unsigned stopped_ = 0;     // cuts behind which no copies are saved any more
};

TEST_P(PowerCuts, AfterAnyWriteOrExchangeLoseNothing) {
  RunWhole();
  for (const auto& [kind, count] : moments_) {
    RecordProperty(kind, std::to_string(count));
    EXPECT_TRUE(count != 0 || (kind == "nvram" && scenario_.request.empty())) << kind;
    for (std::uint64_t nth = 1; nth <= std::min(count, scenario_.moments) && !HasFailure(); nth += kStride) {
      const std::string fault = fmt::format("power {} {}", kind, nth);
      SCOPED_TRACE(fault);
      Cut(fault);
    }
  }
  if (kStride == 1) {
    EXPECT_EQ(lost_ != 0, scenario_.mayLoseRequest) << lost_;
    EXPECT_EQ(stopped_ != 0, scenario_.mayStopCopies) << stopped_;
  }
}

INSTANTIATE_TEST_SUITE_P(Boots, PowerCuts, testing::ValuesIn(kScenarios),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace sim::test
