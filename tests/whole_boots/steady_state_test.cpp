// From its second boot on, a server that nobody touches stays as it is: the same variables byte for byte, the same
// time, the same calls, and no pool block that nobody holds.
#include "tests/whole_boots/server_builder.h"

namespace sim::test {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int kBoots = 25;
#else
constexpr int kBoots = 100;
#endif

struct Case {
  const char* name;
  ServerDescription (*make)();
};

void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

const Case kCases[] = {
    {"CsmAndUefi", [] { return RackServer(3); }},
    {"UefiOnly", [] { return RackServer(3, false); }},
    {"LegacyMode",
     [] {
       ServerDescription server = PlainServer("[setup]\nuefi_mode = 0\n[nvram]\nboot_mode = 3\n");
       server.devices = RackServer(2).devices;
       server.csm.present = true;
       return server;
     }},
    {"WithBmcFiles",
     [] {
       ServerDescription server = RackServer(2);
       server.bmcFiles = true;
       return server;
     }},
    {"NothingToBoot", [] { return PlainServer("[firmware]\nshell_present = false\n"); }},
};

class SteadyState : public testing::TestWithParam<Case> {};

TEST_P(SteadyState, NothingChangesFromTheSecondBootOn) {
  Server server(GetParam().make(), {});
  // A first boot that saves the options on the BMC ends in the reset that follows it.
  for (int i = 0; i < 3; ++i) {
    const BootReport first = server.Boot({});
    ExpectClean(first, "first boot");
    if (first.outcome.end != BootEnd::Reset) break;
  }
  const BootReport second = server.Boot({});
  const auto variables = NonVolatile(server.Variables());
  ExpectSoundOrder(second, "second boot");
  for (int i = 3; i <= kBoots && !HasFailure(); ++i) {
    const BootReport report = server.Boot({});
    const std::string what = fmt::format("boot {}", i);
    ExpectClean(report, what);
    EXPECT_EQ(NonVolatile(server.Variables()), variables) << what;
    EXPECT_EQ(report.outcome.time, second.outcome.time) << what;
    EXPECT_EQ(report.outcome.end, second.outcome.end) << what;
    EXPECT_EQ(report.bootCurrent, second.bootCurrent) << what;
    EXPECT_EQ(report.counts, second.counts) << what;
    EXPECT_EQ(report.poolPeak, second.poolPeak) << what;
    EXPECT_EQ(report.log, second.log) << what;
    for (const VariableWrite& write : report.writes) {
      const bool kept = (write.attributes & EFI_VARIABLE_NON_VOLATILE) != 0;
      EXPECT_TRUE(!kept || write.kind == VariableWrite::Kind::Unchanged || write.status == EFI_NOT_FOUND)
          << what << ": " << VariableWriteKindName(write.kind) << " "
          << std::string(write.name.begin(), write.name.end());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, SteadyState, testing::ValuesIn(kCases),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace sim::test
