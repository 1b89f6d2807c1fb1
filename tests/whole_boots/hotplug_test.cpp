// Disks that come and go over many boots: no option doubles, no foreign one is lost, no number in use is given away.
#include <random>

#include "tests/whole_boots/server_builder.h"

namespace sim::test {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int kBoots = 60;
#else
constexpr int kBoots = 350;  // of each case: over 1,000 in all
#endif
constexpr std::uint16_t kForeign = 0x0042;

struct Case {
  const char* name;
  std::uint16_t highest;  // a number that is in use from the start
};
void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

class Hotplug : public testing::TestWithParam<Case> {};

void Plug(ServerDescription& server, std::mt19937& random) {
  const auto coin = [&random] { return random() % 3 != 0; };
  auto& functions = server.devices.rootBridges[0].functions;
  for (SataDevice& disk : std::get<AhciController>(functions[2].controller).devices) {
    disk.present = coin();
  }
  std::get<UsbHostController>(functions[3].controller).devices[0].present = coin();
  functions[4].present = coin();
}

void AddForeign(VariableStore& store, std::uint16_t number, std::u16string_view name, std::uint32_t disk) {
  const DevicePath path = PartitionPath(disk, u"\\EFI\\BOOT\\BOOTX64.EFI");
  ASSERT_EQ(store.Set(OptionVariable(number), gEfiGlobalVariableGuid, kKept, LoadOptionBytes(name, path.Bytes())),
            EFI_SUCCESS);
}

TEST_P(Hotplug, NothingDoublesAndNothingForeignIsLost) {
  Server server(RackServer(4), {});
  AddForeign(server.Variables(), kForeign, u"system", 1);
  AddForeign(server.Variables(), GetParam().highest, u"other system", 2);
  SetBootOrder(server.Variables(), {GetParam().highest, kForeign});
  const Bytes foreign = *OptionBytes(server.Variables(), kForeign);
  const Bytes highest = *OptionBytes(server.Variables(), GetParam().highest);

  std::mt19937 random(20261124);
  for (int boot = 0; boot < kBoots && !HasFailure(); ++boot) {
    Plug(server.Description(), random);
    const std::string what = fmt::format("boot {}", boot);
    const BootReport report = server.Boot({});
    ExpectClean(report, what);
    ExpectSoundOrder(report, what);
    const auto listed = [&report](std::uint16_t number) {
      return std::count(report.bootOrder.begin(), report.bootOrder.end(), number);
    };
    EXPECT_EQ(listed(kForeign), 1) << what;
    EXPECT_EQ(listed(GetParam().highest), 1) << what;
    // Hidden while its disk is away, otherwise as its maker wrote it.
    const Bytes* now = OptionBytes(server.Variables(), kForeign);
    ASSERT_NE(now, nullptr) << what;
    EXPECT_TRUE(std::equal(now->begin() + 4, now->end(), foreign.begin() + 4, foreign.end())) << what;
    const Bytes* other = OptionBytes(server.Variables(), GetParam().highest);
    ASSERT_NE(other, nullptr) << what;
    EXPECT_TRUE(std::equal(other->begin() + 4, other->end(), highest.begin() + 4, highest.end())) << what;
  }
}

INSTANTIATE_TEST_SUITE_P(Numbers, Hotplug,
                         testing::Values(Case{"LowNumbers", 0x0043}, Case{"NearTheEnd", 0xFFFB},
                                         Case{"TheLastNumber", 0xFFFE}),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace sim::test
