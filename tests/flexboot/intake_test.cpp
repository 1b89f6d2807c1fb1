// Whole boots with a policy on the BMC: what is kept, what is published, what a boot falls back on, and the options
// that the policy's loaders get.
#include "flexboot/policy_record.h"
#include "tests/flexboot/policy_text.h"
#include "tests/whole_boots/server_builder.h"

namespace sim::test {
namespace {

using ::test::Policy;
using ::test::PolicyTarget;

class PolicyBoot : public testing::Test {
 protected:
  explicit PolicyBoot() : server_(Described(), {}) {}

  static ServerDescription Described() {
    ServerDescription description = RackServer(2, false);
    description.bmcFiles = true;
    return description;
  }
  void SetManaged(bool managed) { server_.Description().managementMode = managed ? 1 : 0; }
  void Put(const std::string& name, const std::string& text) {
    FileStore files(Bmc::FilesOf(server_.BmcFolder()));
    ASSERT_TRUE(files.Write(name, {text.begin(), text.end()}));
  }
  void Drop(const std::string& name) { FileStore(Bmc::FilesOf(server_.BmcFolder())).Remove(name); }
  BootReport Boot(std::vector<std::string> faults = {}) {
    BootRequest request;
    request.faults = std::move(faults);
    BootReport report = server_.Boot(request);
    ExpectClean(report, "boot");
    return report;
  }
  // The type codes in the variable's record, "none" without a variable.
  std::string Cached() const {
    const Variable* variable = server_.Variables().Find(kFlexBootOrderName, kPolicyVariablesGuid);
    if (variable == nullptr) return "none";
    EXPECT_EQ(variable->attributes, 3U);
    std::string types;
    for (std::size_t at = 321; at + 312 <= variable->data.size(); at += 312) {
      types += fmt::format("{} ", static_cast<int>(variable->data[at]));
    }
    return types;
  }
  int Byte(std::u16string_view name) const {
    const Variable* variable = server_.Variables().Find(name, kPolicyVariablesGuid);
    return variable == nullptr ? -1 : static_cast<int>(variable->data.at(0));
  }
  int Named(const BootReport& report, std::u16string_view name) const {
    return static_cast<int>(std::ranges::count(report.options, name, &OptionReport::name));
  }

  Server server_;
};

TEST_F(PolicyBoot, AManagedServerGoesOnWithThePolicyItKept) {
  SetManaged(true);
  Put("ConfigPolicy.xml", Policy(PolicyTarget("LANAny", "") + PolicyTarget("USB", ""), "2"));
  BootReport report = Boot();
  EXPECT_EQ(Cached(), "9 14 ");
  EXPECT_EQ(Byte(kHavePboName), 1);
  EXPECT_EQ(Byte(kOneTimeBootName), 0);
  EXPECT_NE(report.log.find("FlexBoot: Saved variable \"FlexBootOrder\" with size 945\n"), std::string::npos);
  EXPECT_NE(report.log.find("BootOrderTableEntryPoint:Obtained FlexBOOT policy\n"), std::string::npos);

  Drop("ConfigPolicy.xml");
  report = Boot();
  EXPECT_NE(report.log.find("Using cached boot order policy instead!\n"), std::string::npos);
  EXPECT_EQ(Byte(kHavePboName), 1);
  EXPECT_EQ(Cached(), "9 14 ");

  Put("ConfigPolicy.xml", "<no policy>");
  Boot();
  EXPECT_EQ(Byte(kHavePboName), 0) << "a policy that cannot be read is no reason to follow an older one";
  EXPECT_EQ(Cached(), "9 14 ");
}

TEST_F(PolicyBoot, AStandaloneServerKeepsNone) {
  Put("ConfigPolicy.xml", Policy(PolicyTarget("LANAny", "")));
  Boot();
  EXPECT_EQ(Byte(kHavePboName), 1);
  EXPECT_EQ(Cached(), "none");
  Drop("ConfigPolicy.xml");
  const BootReport report = Boot();
  EXPECT_NE(report.log.find("In rack standalone: No Configpolicy.xml \n"), std::string::npos);
  EXPECT_EQ(Byte(kHavePboName), 0);
}

TEST_F(PolicyBoot, APolicyForOneBootComesFirst) {
  SetManaged(true);
  Put("ConfigPolicy.xml", Policy(PolicyTarget("LANAny", "")));
  Put("OneTimeConfigPolicy.xml", Policy(PolicyTarget("USB", "")));
  Boot();
  EXPECT_EQ(Cached(), "14 ");
  Drop("OneTimeConfigPolicy.xml");
  Boot();
  EXPECT_EQ(Cached(), "9 ");
  EXPECT_EQ(Byte(kOneTimeBootName), 0);
}

TEST_F(PolicyBoot, LongAndBrokenPolicies) {
  SetManaged(true);
  const std::string usb = Policy(PolicyTarget("USB", ""));
  const std::string lan = Policy(PolicyTarget("LANAny", ""));
  const struct {
    const char* about;
    std::string policy;
    std::vector<std::string> faults;
    std::string cached;
    int havePolicy;
  } cases[] = {
      {"a file of whole pieces", usb + std::string(59 * 10 - usb.size(), ' '), {}, "14 ", 1},
      {"longer than the buffer, targets within it", lan + std::string(100'000, ' '), {}, "9 ", 1},
      {"targets behind 4,095 bytes", std::string(4000, ' ') + usb, {}, "9 ", 0},
      {"an empty file", "", {}, "9 ", 0},
      {"a piece that never comes: the kept one", usb, {"no-answer:always@5"}, "9 ", 1},
      {"a dead BMC: the kept one", usb, {"no-answer:always"}, "9 ", 1},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.about);
    Put("ConfigPolicy.xml", row.policy);
    Boot(row.faults);
    EXPECT_EQ(Cached(), row.cached);
    EXPECT_EQ(Byte(kHavePboName), row.havePolicy);
  }
}

TEST_F(PolicyBoot, AKeptRecordIsCheckedBeforeItIsUsed) {
  SetManaged(true);
  const auto keep = [this](std::size_t size, std::uint8_t targets) {
    Bytes record(size, std::byte{0xFF});
    if (size > 320) record[320] = std::byte{targets};
    ASSERT_EQ(server_.Variables().Set(kFlexBootOrderName, kPolicyVariablesGuid, 3, record), EFI_SUCCESS);
  };
  const struct {
    std::size_t size;
    std::uint8_t targets;
    int havePolicy;
  } cases[] = {{1, 0, 0}, {321, 1, 0}, {633, 2, 0}, {634, 1, 0}, {633, 1, 1}, {321, 0, 1}};
  for (const auto& row : cases) {
    keep(row.size, row.targets);
    Boot();
    EXPECT_EQ(Byte(kHavePboName), row.havePolicy) << row.size << ' ' << int{row.targets};
  }
}

// The USB stick has the loader too; the option for it is taken by no local disk's target, and goes.
TEST_F(PolicyBoot, LoadersOfThePolicyGetOptionsOnce) {
  const std::string guid1 = "<UniquePartitionGUID value=\"0D15C0DF-0000-4000-8000-000000000011\" />";
  const std::string path = "<BootLoaderPath value=\"/EFI/BOOT\" />";
  const std::string name = "<BootLoaderName value=\"bootx64.EFI\" />";
  const std::string called = "<DeviceName value=\"by policy\" />";
  const struct {
    const char* about;
    std::string elements;
    int options;
  } cases[] = {
      {"path and name on one partition", guid1 + path + name + called, 1},
      {"the path on one partition", guid1 + path + called, 1},
      {"the name on one partition", guid1 + name + called, 1},
      {"on every partition", path + name + called, 2},
      {"a malformed GUID rules nothing out",
       "<UniquePartitionGUID value=\"0D15C0DF-0000-4000-8000-0000000000110\" />" + path + called, 2},
      {"a text that is no GUID", "<UniquePartitionGUID value=\"x)/HD(\" />" + path + called, 2},
      {"another partition", "<UniquePartitionGUID value=\"00000000-0000-4000-8000-000000000011\" />" + path + called,
       0},
      {"no such directory", guid1 + "<BootLoaderPath value=\"/EFI/no\" />" + called, 0},
      {"no such file", guid1 + path + "<BootLoaderName value=\"no.efi\" />" + called, 0},
      {"both loaders of a SAN target",
       guid1 + "<PrimaryTargetUEFIBootParam>" + path + called + "</PrimaryTargetUEFIBootParam>" +
           "<SecondaryTargetUEFIBootParam>" + name + called + "</SecondaryTargetUEFIBootParam>",
       1},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.about);
    Server server(Described(), {});
    FileStore files(Bmc::FilesOf(server.BmcFolder()));
    const std::string policy = Policy(PolicyTarget("LocalHDDAny", row.elements));
    files.Write("ConfigPolicy.xml", {policy.begin(), policy.end()});
    for (int boot = 0; boot < 3; ++boot) {
      const BootReport report = server.Boot({});
      ExpectClean(report, row.about);
      EXPECT_EQ(Named(report, u"by policy"), row.options) << "boot " << boot;
    }
  }
}

TEST_F(PolicyBoot, AnOptionWithoutADescriptionIsCalledAfterLoaderAndController) {
  Put("ConfigPolicy.xml", Policy(PolicyTarget("LocalHDDAny", "<BootLoaderPath value=\"\\EFI\\BOOT\" />")));
  const BootReport report = Boot();
  int named = 0;
  for (const OptionReport& option : report.options) named += option.name.starts_with(u"BOOTX64.EFI");
  EXPECT_EQ(named, 2);
}

}  // namespace
}  // namespace sim::test
