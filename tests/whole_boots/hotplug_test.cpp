// Disks that come and go over many boots: no option doubles, no foreign one is lost or overtakes another, no number in
// use is given away.
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

// What is plugged in; `raid` are the disks that only the legacy BIOS sees. Whether foreign option n's disk is there.
std::array<bool, 2> Plug(ServerDescription& server, const std::vector<BbsEntryDescription>& raid,
                         std::mt19937& random) {
  const auto coin = [&random] { return random() % 3 != 0; };
  auto& functions = server.devices.rootBridges[0].functions;
  for (SataDevice& disk : std::get<AhciController>(functions[2].controller).devices) {
    disk.present = coin();
  }
  std::get<UsbHostController>(functions[3].controller).devices[0].present = coin();
  functions[4].present = coin();
  server.csm.entries.clear();
  std::copy_if(raid.begin(), raid.end(), std::back_inserter(server.csm.entries), [&](const auto&) { return coin(); });
  const auto& disks = std::get<AhciController>(functions[2].controller).devices;
  return {disks[0].present, disks[1].present};
}

// Each behind a controller of its own: behind one, a legacy disk is known by its place among those that are there.
std::vector<BbsEntryDescription> RaidDisks(const BbsEntryDescription& first) {
  std::vector<BbsEntryDescription> raid(3, first);
  for (std::size_t i = 0; i < raid.size(); ++i) {
    raid[i].device = static_cast<std::uint32_t>(i);
    raid[i].index = static_cast<std::uint8_t>(40 + i);
    raid[i].description = fmt::format("RAID LUN {}", i);
  }
  return raid;
}

// The numbers of the firmware's own options by what they are.
std::map<std::string, std::uint16_t> FirmwareNumbers(const BootReport& report) {
  std::map<std::string, std::uint16_t> numbers;
  for (const OptionReport& option : report.options) {
    if (option.readable && option.firmware) {
      numbers[std::string(option.name.begin(), option.name.end()) + " " + option.path] = option.number;
    }
  }
  return numbers;
}

// As its maker wrote it, but hidden while its disk is away.
void ExpectForeign(const Bytes* now, const Bytes& written, bool present, const std::string& what) {
  ASSERT_NE(now, nullptr) << what;
  std::uint32_t attributes = 0;
  std::memcpy(&attributes, now->data(), sizeof(attributes));
  EXPECT_EQ(attributes, present ? LOAD_OPTION_ACTIVE : LOAD_OPTION_ACTIVE | LOAD_OPTION_HIDDEN) << what;
  EXPECT_TRUE(std::equal(now->begin() + 4, now->end(), written.begin() + 4, written.end())) << what;
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

  const std::vector<BbsEntryDescription> raid = RaidDisks(server.Description().csm.entries.at(0));
  std::map<std::string, std::uint16_t> numbers;
  std::mt19937 random(20261124);
  for (int boot = 0; boot < kBoots && !HasFailure(); ++boot) {
    const auto present = Plug(server.Description(), raid, random);
    const std::string what = fmt::format("boot {}", boot);
    const BootReport report = server.Boot({});
    ExpectClean(report, what);
    ExpectSoundOrder(report, what);
    std::vector<std::uint16_t> listed;
    std::copy_if(report.bootOrder.begin(), report.bootOrder.end(), std::back_inserter(listed),
                 [](std::uint16_t number) { return number == kForeign || number == GetParam().highest; });
    EXPECT_EQ(listed, (std::vector<std::uint16_t>{GetParam().highest, kForeign})) << what;
    ExpectForeign(OptionBytes(server.Variables(), kForeign), foreign, present[0], what);
    ExpectForeign(OptionBytes(server.Variables(), GetParam().highest), highest, present[1], what);
    const auto now = FirmwareNumbers(report);
    EXPECT_FALSE(now.empty()) << what;
    for (const auto& [option, number] : now) {
      const auto before = numbers.find(option);
      EXPECT_TRUE(before == numbers.end() || before->second == number)
          << what << ": " << option << " became " << number;
    }
    numbers = now;
  }
}

INSTANTIATE_TEST_SUITE_P(Numbers, Hotplug,
                         testing::Values(Case{"LowNumbers", 0x0043}, Case{"NearTheEnd", 0xFFFB},
                                         Case{"TheLastNumber", 0xFFFE}),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace sim::test
