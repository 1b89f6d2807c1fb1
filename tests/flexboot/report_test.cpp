// Whole boots and what they report to the BMC: the order with a policy and without, well-formed whatever the names; and
// what becomes of a policy that is no longer current.
#include <algorithm>

#include "flexboot/actual_order.h"
#include "flexboot/policy_format.h"
#include "flexboot/stale_policy.h"
#include "platform/flexboot_protocol.h"
#include "sim/policy/well_formed.h"
#include "tests/flexboot/policy_text.h"
#include "tests/support/bmc_fixture.h"
#include "tests/whole_boots/server_builder.h"

namespace sim::test {
namespace {

using ::test::Policy;
using ::test::PolicyTarget;

// Two network ports on the board, a disk on the chipset's storage controller, and BBS entries.
std::string Described(const std::string& disk, const std::string& entries) {
  return R"(
[setup]
uefi_mode = 0
[csm]
present = true
)" + entries +
         R"(
[[root_bridge]]
[[root_bridge.function]]
kind = "isa"
device = 0x1F
[[root_bridge.function]]
kind = "ahci"
device = 0x1F
number = 2
board_port = "storage"
[[root_bridge.function.sata]]
port = 0
model = ")" +
         disk + R"("
[[root_bridge.function]]
kind = "sas"
device = 3
[[root_bridge.function]]
kind = "network"
device = 2
number = 1
embedded = true
mac = "02:00:00:00:00:02"
[[root_bridge.function]]
kind = "network"
device = 2
number = 0
embedded = true
mac = "02:00:00:00:00:01"
)";
}

std::string Entries(int count, const std::string& keys) {
  std::string text;
  for (int i = 0; i < count; ++i) text += "[[csm.entry]]\n" + keys;
  return text;
}

std::string FileOf(const Server& server, std::string_view name) {
  const auto bytes = FileStore(Bmc::FilesOf(server.BmcFolder())).Read(name);
  return bytes ? std::string(bytes->begin(), bytes->end()) : "none";
}

void PutFile(const Server& server, std::string_view name, const std::string& text) {
  ASSERT_TRUE(FileStore(Bmc::FilesOf(server.BmcFolder())).Write(name, {text.begin(), text.end()}));
}

// The document without its comment: a line for each group, the leaves' values behind their names.
std::string Brief(const std::string& report) {
  if (report == "none") return report;
  const auto error = FindXmlError(report);
  EXPECT_FALSE(error) << (error ? error->text : "") << '\n' << report;
  std::string brief;
  std::istringstream lines(report.substr(0, report.find("<!--")));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t value = line.find(" value=\"");
    if (line.starts_with("<ActualBootTarget ")) brief += '\n';
    if (value == std::string::npos) continue;
    const std::string name = line.substr(1, value - 1);
    const std::string text = line.substr(value + 8, line.rfind('"') - value - 8);
    brief += name == "ActualBootTarget" ? text : " " + name + "=" + text;
  }
  return brief;
}

const std::string kLan = PolicyTarget("LAN", "<PciSlotId value=\"L\" /><PortNum value=\"1\" /><RN value=\"lan\" />");
const std::string kDisk = PolicyTarget("LocalHDDAny", "<RN value=\"disk\" />");
const std::string kSan = PolicyTarget("SANAny", "<RN value=\"san\" />");

// What no target took.
std::string NonPolicy(const std::string& name, const std::string& place) {
  return "\nNonPolicyTarget RN=NonPolicyTarget DeviceName=" + name + " DeviceType=" + place + " ErrorCode=3";
}
const std::string kDiskName = "HDD Slot 1:DISK                ";
const std::string kOurDisk = NonPolicy(kDiskName, "PCHSTORAGE");
const std::string kShell = NonPolicy("UEFI: Built-in EFI Shell+", "EFI");
const std::string kPort0 = NonPolicy("PXE network boot+", "PXE Slot=L Port=0");
const std::string kPort1 = NonPolicy("PXE network boot+", "PXE Slot=L Port=1");
const std::string kFloppy = "FD+ DeviceType=USB SubType=usb-fdd ErrorCode=";

struct ReportRow {
  const char* about;
  bool managed;
  std::string policy;  // empty: none
  std::string header;
  std::string targets;
  std::string disk = "DISK";
  std::string entries = {};
};

std::vector<ReportRow> ReportRows() {
  const std::string mode = " BootMode=Legacy LastUpdate=";
  const std::string policy = " Version=1.0 ServiceProfile=sp OverallErrorCode=0 UniqueId= TotalActualTargets=";
  const auto of = [](const std::string& targets, const char* count = "3") { return Policy(targets, count, "legacy"); };
  return {
      {"a target without a device is left out, and not counted", false, of(kLan + kSan),
       " TotalActualTargets=1" + mode + "IXMO",
       "\nLAN RN=lan DeviceName=PXE network boot+ DeviceType=PXE Slot=L Port=1 ErrorCode=0" + kShell + kOurDisk +
           kPort0},
      {"the manager is told of it, and of no place", true, of(kDisk + kSan), policy + "1",
       "\nLocalHDDAny DeviceName=" + kDiskName +
           " ErrorCode=0\nSANAny DeviceName=Not found. Please verify device presence. ErrorCode=1"},
      {"a disk on the chipset's port has no slot line", false, of(kDisk), " TotalActualTargets=1" + mode + "IXMO",
       "\nLocalHDDAny RN=disk DeviceName=" + kDiskName + " DeviceType=PCHSTORAGE ErrorCode=0" + kShell + kPort0 +
           kPort1},
      {"two floppies are one too many; both were matches", false, of(PolicyTarget("LocalFDD", "")),
       " TotalActualTargets=2" + mode + "IXMO",
       "\nLocalFDD RN= DeviceName=" + kFloppy + "0\nLocalFDD RN= DeviceName=" + kFloppy +
           "0\nLocalFDD RN= DeviceName=Multiple matches found. DeviceType= ErrorCode=2" + kShell + kOurDisk +
           NonPolicy("FD+", "USB SubType=usb-fdd") + NonPolicy("FD+", "USB SubType=usb-fdd") + kPort0 + kPort1,
       "DISK", Entries(2, "type = 1\ndescription = \"FD\"\nboot_priority = 0\n")},
      {"names with what XML keeps for itself", false,
       of(PolicyTarget("LocalHDDAny", "<RN value=\"a&b<c'--d\" />"), "1"), " TotalActualTargets=1" + mode + "IXMO",
       "\nLocalHDDAny RN=a&amp;b&lt;c'--d DeviceName=HDD Slot 1:&lt;S&amp;D>----]]>         DeviceType=PCHSTORAGE "
       "ErrorCode=0" +
           kShell + kPort0 + kPort1,
       "<S&D>----]]>"},
      {"a policy without targets", false, of("", "0"), " TotalActualTargets=0" + mode + "IXMO",
       kShell + kOurDisk + kPort0 + kPort1},
      {"no policy", false, "", " TotalActualTargets=4" + mode + "BIOS", kOurDisk + kPort0 + kPort1 + kShell},
      {"no policy, and the manager asks for no report", true, "", "none", ""},
  };
}

Server DescribedServer(bool managed, const std::string& disk = "DISK", const std::string& entries = {}) {
  ServerDescription description = ParseServerDescription(Described(disk, entries), "test", ".");
  description.managementMode = managed ? 1 : 0;
  return Server(std::move(description), {});
}

TEST(ActualOrder, IsReportedAsTheBootMadeIt) {
  for (const ReportRow& row : ReportRows()) {
    SCOPED_TRACE(row.about);
    Server server = DescribedServer(row.managed, row.disk, row.entries);
    if (!row.policy.empty()) PutFile(server, "ConfigPolicy.xml", row.policy);
    ExpectClean(server.Boot({}), row.about);
    EXPECT_EQ(Brief(FileOf(server, "ActualOrder.xml")), row.header + row.targets);
  }
}

// The record has room for 64; the document shows 30, and counts what it shows.
TEST(ActualOrder, EndsWhereTheRecordAndTheDocumentEnd) {
  const std::string luns = Entries(
      70, "type = 2\nbus = 0\ndevice = 3\nfunction = 0\nsubclass = 4\ndescription = \"LUN\"\nboot_priority = 0\n");
  for (const bool managed : {false, true}) {
    Server server = DescribedServer(managed, "DISK", luns);
    PutFile(server, "ConfigPolicy.xml", Policy(kDisk, "1", "legacy"));
    ExpectClean(server.Boot({}), "70 units");
    const std::string brief = Brief(FileOf(server, "ActualOrder.xml"));
    EXPECT_EQ(std::ranges::count(brief, '\n'), 30);
    EXPECT_NE(brief.find(" TotalActualTargets=30"), std::string::npos) << brief;
  }
}

// The bytes that readers of the file know.
TEST(ActualOrder, TheDocumentIsWrittenLineByLine) {
  Server server = DescribedServer(false);
  PutFile(server, "ConfigPolicy.xml", Policy(kLan + PolicyTarget("NonPolicyTarget", ""), "2", "legacy"));
  ExpectClean(server.Boot({}), "boot");
  const std::string file = FileOf(server, "ActualOrder.xml");
  EXPECT_EQ(file.substr(0, file.find("<ActualBootTarget value=\"NonPolicyTarget\"")),
            "<?xml version='1.0'?>\n<ActualBootOrder>\n<ActualBootOrderHeader>\n<TotalActualTargets value=\"1\" />\n"
            "<BootMode value=\"Legacy\" />\n<LastUpdate value=\"IXMO\" />\n</ActualBootOrderHeader>\n"
            "<ActualBootTargets>\n<ActualBootTarget value=\"LAN\" >\n<RN value=\"lan\" />\n"
            "<DeviceName value=\"PXE network boot+\" />\n<DeviceType value=\"PXE\" />\n<Slot value=\"L\" />\n"
            "<Port value=\"1\" />\n<ErrorCode value=\"0\" />\n</ActualBootTarget>\n");
  EXPECT_NE(file.find("</ActualBootTargets>\n</ActualBootOrder>\n\n<!--\nThe following data concerns what hardware was "
                      "present on the boot and how it was processed.\n"),
            std::string::npos);
  EXPECT_TRUE(file.ends_with("\n\n-->\n"));
}

// Every piece of the file lost once, or not sent since another agent held the interface: it is written anew. A BMC that
// never takes it costs no boot.
TEST(ActualOrder, ALostPieceIsWrittenAgain) {
  Server first = DescribedServer(true);
  PutFile(first, "ConfigPolicy.xml", Policy(kDisk, "1", "legacy"));
  const BootReport clean = first.Boot({});
  const std::uint64_t exchanges = clean.counts.at("bmc.exchanges");
  const std::string file = FileOf(first, "ActualOrder.xml");
  for (std::uint64_t at = 1; at <= 2 * exchanges; ++at) {
    Server server = DescribedServer(true);
    PutFile(server, "ConfigPolicy.xml", Policy(kDisk, "1", "legacy"));
    BootRequest request;
    request.faults = {at <= exchanges ? fmt::format("no-answer@{}", at) : fmt::format("lock-held@{}", at - exchanges)};
    SCOPED_TRACE(request.faults[0]);
    const BootReport report = server.Boot(request);
    ExpectClean(report, "boot");
    const bool asked = report.log.find("In ExportActualOrderXML") != std::string::npos;
    const bool opened = report.log.find("Exporting debug info to XML") != std::string::npos;
    EXPECT_EQ(FileOf(server, "ActualOrder.xml"), opened ? file : "none");
    EXPECT_TRUE(asked || report.log.find("XML read failed") != std::string::npos);
  }
}

// ---- A policy for one boot

struct OneTimeRow {
  const char* about;
  bool managed;
  std::optional<std::uint32_t> bootFlow;
  std::string ipmi;
  bool used;
  unsigned requests;  // that reached the BMC
};

TEST(OneTimePolicy, IsUsedOnceAndReportedAsSuch) {
  const OneTimeRow rows[] = {
      {"standalone", false, std::nullopt, "builtin", true, 1},
      {"under the central manager", true, std::nullopt, "builtin", true, 1},
      {"F6 keeps it", false, 6, "builtin", true, 1},
      {"F12 sets it aside: it stays", false, 0x1001, "builtin", false, 0},
      {"a BMC that cannot be told", false, std::nullopt, "none", true, 0},
  };
  for (const OneTimeRow& row : rows) {
    SCOPED_TRACE(row.about);
    Server server = DescribedServer(row.managed);
    server.Description().nvram.bootFlow = row.bootFlow;
    server.Description().ipmi = row.ipmi;
    PutFile(server, "ConfigPolicy.xml", Policy(kLan, "1", "legacy"));
    PutFile(server, "OneTimeConfigPolicy.xml", Policy(kDisk, "1", "legacy"));
    const BootReport first = server.Boot({});
    ExpectClean(first, row.about);
    std::string error;
    EXPECT_EQ(BmcState::Load(Bmc::ParametersOf(server.BmcFolder()), error)->oneTimeStaleRequests, row.requests);
    EXPECT_EQ(FileOf(server, "OneTimeConfigPolicy.xml") == "none", row.requests == 1);
    EXPECT_EQ(first.log.find("HandleOneTimeBootStale:Uninstall FlexBootOrder protocol status EFI_SUCCESS\n") !=
                  std::string::npos,
              row.used);
    ASSERT_FALSE(first.options.empty());
    if (row.used) {
      EXPECT_TRUE(first.options[0].name.starts_with(u"HDD Slot 1")) << "the order is this boot's";
    }
    const std::string told = FileOf(server, "ActualOrder.xml");
    if (!row.managed) {
      EXPECT_NE(told.find(row.used ? "<LastUpdate value=\"IXMOOneTimeBoot\" />" : "<LastUpdate value=\"BIOS\" />"),
                std::string::npos);
    }
    if (row.requests == 0) continue;

    const BootReport second = server.Boot({});
    ExpectClean(second, row.about);
    EXPECT_EQ(second.options[0].name, u"PXE network boot") << "the lasting policy again";
    EXPECT_EQ(FileOf(server, "ActualOrder.xml").find("IXMOOneTimeBoot"), std::string::npos);
    const auto settled = NonVolatile(server.Variables());
    ExpectClean(server.Boot({}), "third");
    EXPECT_EQ(NonVolatile(server.Variables()), settled);
  }
}

// ---- Policies that are no longer current

class StalePolicy : public ::test::BmcFixture {
 protected:
  void Put(const char* name, std::string_view text) { ASSERT_TRUE(files().Write(name, {text.begin(), text.end()})); }
  std::string Read(const char* name) {
    const auto bytes = files().Read(name);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "none";
  }
  void PublishPolicy() {
    ASSERT_EQ(
        bds::BootServices()->InstallProtocolInterface(
            &bds::gFlexBoot.mFlexBootHandle, &ProtocolGuid<FLEXBOOT_ORDER_HEADER>, EFI_NATIVE_INTERFACE, &policy_),
        EFI_SUCCESS);
    ASSERT_TRUE(bds::HaveVbootPolicy()) << "the engine keeps the interface";
    SetVariable(kFlexBootOrderName, kPolicyVariablesGuid, ::test::kAttributes3, {1, 2, 3});
    TakeLog();
  }
  bool VariableIsThere() { return Variable(kFlexBootOrderName, kPolicyVariablesGuid).has_value(); }

  FLEXBOOT_ORDER_HEADER policy_{};
};

TEST_F(StalePolicy, AChangedTableRenamesTheFilesAndForgetsTheRecord) {
  for (const char* fault : {"", "no-answer", "no-answer:always"}) {
    SCOPED_TRACE(fault);
    NextBoot();
    Put("ActualOrder.xml", "report");
    Put("ConfigPolicy.xml", "policy");
    PublishPolicy();
    if (*fault != '\0') AddFault(fault);
    EXPECT_EQ(bds::HandleStalePolicy(), EFI_SUCCESS);
    EXPECT_FALSE(bds::HaveVbootPolicy());
    EXPECT_EQ(bds::gFlexBoot.mFlexBootHandle, nullptr);
    EXPECT_FALSE(VariableIsThere());
    EXPECT_TRUE(Logged("HandleStalePolicy:Uninstall FlexBootOrder protocol status EFI_SUCCESS\n"));
    const bool dead = std::string_view(fault) == "no-answer:always";
    EXPECT_EQ(Read("ActualOrder.xml"), dead ? "report" : "none");
    EXPECT_EQ(Read("ConfigPolicy.xml"), dead ? "policy" : "none");
    if (!dead) {
      EXPECT_EQ(Read("ConfigPolicy_stale.xml"), "policy");
    }
    TakeLog();
    EXPECT_EQ(bds::HandleStalePolicy(), EFI_SUCCESS);
    EXPECT_FALSE(Logged("Uninstall")) << "once withdrawn, there is nothing to withdraw";
  }
}

class ReportedPlaces : public StalePolicy {};

TEST_F(ReportedPlaces, FollowTheDeviceTypeAndTheSlot) {
  const struct {
    const char* type;
    UINT16 slot;
    const char* place;
  } rows[] = {
      {"PXE", 3, "PXE Slot=MLOM Port=9"},
      {"pxe", 4, "pxe Slot=HBA Port=9"},
      {"ISCSI", 255, "ISCSI Slot=SIOC1 Port=9"},
      {"HDD", 76, "HDD Slot=L"},
      {"SAN", 77, "SAN Slot=M"},
      {"HDD", 254, "HDD Slot=254"},
      {"HDD", 83, "PCHSTORAGE"},
      {"USB", 4, "USB SubType=sub"},
      {"VMEDIA", 4, "VMEDIA SubType=sub"},
      {"SDCARD", 4, "SDCARD"},
      {"EFI", 0, "EFI"},
  };
  PublishMode(0, 0);
  SetSetup({{kSetupUefiMode, 1}});
  ACTUAL_BOOT_ORDER record{};
  std::string expected = " TotalActualTargets=0 BootMode=Uefi LastUpdate=";
  for (std::size_t at = 0; at < std::size(rows); ++at) {
    ACTUAL_BOOT_TARGET& target = record.Targets[at];
    target.HasOptionName = 1;
    bds::SetField(target.DeviceType, rows[at].type);
    target.Slot = rows[at].slot;
    target.Port = 9;
    bds::SetField(target.SubType, "sub");
    expected +=
        fmt::format("\n{} RN= DeviceName= DeviceType={} ErrorCode=0", bds::kTargetTypes[0].Word, rows[at].place);
  }
  EFI_HANDLE handle = nullptr;
  ASSERT_EQ(bds::BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<ACTUAL_BOOT_ORDER>,
                                                          EFI_NATIVE_INTERFACE, &record),
            EFI_SUCCESS);
  bds::ExportActualOrderXML(nullptr, nullptr);
  EXPECT_EQ(Brief(Read("ActualOrder.xml")), expected);
}

TEST_F(StalePolicy, ThePlatformsEventLeavesAMarkerBesideThePolicy) {
  for (const bool there : {true, false}) {
    NextBoot();
    if (there) Put("ConfigPolicy.xml", "policy");
    if (!there) files().Remove("ConfigPolicy.xml");
    files().Remove("ConfigPolicy_stale.xml");
    PublishPolicy();
    bds::RackHandleStalePolicy(nullptr, nullptr);
    EXPECT_EQ(Read("ConfigPolicy.xml"), there ? "policy" : "none");
    EXPECT_EQ(Read("ConfigPolicy_stale.xml"), there ? "Dummy" : "none");
    EXPECT_FALSE(bds::HaveVbootPolicy());
    EXPECT_TRUE(VariableIsThere()) << "the record is left alone";
    EXPECT_EQ(Log().starts_with("RACK STAND ALONE:FlexBoot policy is stale, marking it as such.\n"), true);
  }
}

TEST(StalePolicyBoot, TheLoadersOfAWithdrawnPolicyAreNotSearchedFor) {
  for (const char* step : {"", "ReadBootOptions", "SetBootOptionPriorities"}) {
    Server server = DescribedServer(false);
    server.Description().platform.policyStale = step;
    PutFile(server, "ConfigPolicy.xml", Policy(PolicyTarget("LocalHDDAny", "<BootLoaderName value=\"a.efi\" />"), "1"));
    const BootReport report = server.Boot({});
    ExpectClean(report, step);
    EXPECT_EQ(report.log.find(" locating all FS handles.") == std::string::npos,
              std::string_view(step) == "ReadBootOptions")
        << step;
  }
}

// What cannot be located, deleted or published twice is told, and leaves nothing behind that was freed.
TEST_F(StalePolicy, FailuresAreToldAndNothingIsForgottenHalf) {
  EFI_HANDLE handle = nullptr;
  ASSERT_EQ(bds::BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<ACTUAL_BOOT_ORDER>,
                                                          EFI_NATIVE_INTERFACE, nullptr),
            EFI_SUCCESS);
  TakeLog();
  bds::ExportActualOrderXML(nullptr, nullptr);
  EXPECT_FALSE(Logged("In ExportActualOrderXML\n"));

  PublishPolicy();
  const bds::POLICY_TARGET_LIST none;
  bds::GenerateReportStruct(none);
  const ACTUAL_BOOT_ORDER* published = bds::gFlexBoot.ActualOrder.get();
  ASSERT_NE(published, nullptr);
  bds::GenerateReportStruct(none);
  EXPECT_TRUE(Logged("Failed Installing Actual Boot Order data:EFI_ALREADY_STARTED\n"));
  EXPECT_EQ(bds::gFlexBoot.ActualOrder.get(), published);

  RefuseWrite = [](const std::u16string& name) { return name == kFlexBootOrderName ? EFI_DEVICE_ERROR : EFI_SUCCESS; };
  bds::HandleStalePolicy();
  EXPECT_TRUE(Logged("HandleStalePolicy:FlexBootOrder cannot be deleted:EFI_DEVICE_ERROR\n"));
  RefuseWrite = nullptr;

  NextBoot();
  PublishPolicy();
  machine.Faults().SetCallHook([](std::string_view service, std::uint64_t) {
    return service == "LocateProtocol" ? std::optional<EFI_STATUS>(EFI_NOT_FOUND) : std::nullopt;
  });
  bds::RackHandleStalePolicy(nullptr, nullptr);
  EXPECT_FALSE(bds::HaveVbootPolicy()) << "the interface is forgotten though it was not located";
  machine.Faults().SetCallHook({});
}

TEST_F(StalePolicy, TheRequestThatAOneTimePolicyWasUsedIsTriedFiveTimes) {
  PublishIpmi();
  for (const unsigned failures : {0U, 1U, 4U, 5U}) {
    SCOPED_TRACE(failures);
    NextBoot();
    PublishIpmi();
    Put("OneTimeConfigPolicy.xml", "policy");
    PublishPolicy();
    bds::gFlexBoot.OneTimePolicy = bds::ONE_TIME_POLICY::Applied;
    if (failures == 1) AddFault("lock-held");  // asked for the file again
    unsigned sent = 0;
    bmc().Transport().onRequest = [&](std::uint64_t) {
      return ++sent <= failures ? std::optional<EFI_STATUS>(EFI_TIMEOUT) : std::nullopt;
    };
    const std::uint32_t before = bmc().State().oneTimeStaleRequests;
    const sim::Ticks start = clock().Now();
    bds::HandleOneTimeBootStale(nullptr, nullptr);
    EXPECT_EQ(sent, std::min(failures + 1, 5U));
    EXPECT_EQ(bmc().State().oneTimeStaleRequests - before, failures < 5 ? 1U : 0U);
    EXPECT_EQ((clock().Now() - start) / kSecond, 2 + 2 * failures);  // the second question takes 0.2 s
    EXPECT_FALSE(bds::HaveVbootPolicy()) << "withdrawn whatever the BMC answers";
    EXPECT_EQ(bds::gFlexBoot.LoadersWithdrawn, TRUE);
    EXPECT_EQ(Logged("Making OneTimeConfigPolicy.xml stale (EFI_SUCCESS)\n"), failures < 5);
    TakeLog();
    Put("OneTimeConfigPolicy.xml", "policy");
    bds::HandleOneTimeBootStale(nullptr, nullptr);
    EXPECT_EQ(sent, std::min(failures + 1, 5U)) << "told once a boot";
  }
}

}  // namespace
}  // namespace sim::test
