// Policies and the findings that they must give. Each row changes one thing about a policy that has none.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <filesystem>

#include "sim/policy/policy_reading.h"

namespace sim {
namespace {

constexpr const char* kGood = R"(<?xml version="1.0"?>
<FlexBootOrder>
  <FlexBootOrderHeader>
    <BootType value="uefi" />
    <NumBootTargets value="1" />
  </FlexBootOrderHeader>
  <FlexBootTargets>
    <FlexBootTarget value="LAN">
      <PciVid value="8086" />
    </FlexBootTarget>
  </FlexBootTargets>
</FlexBootOrder>
)";

std::vector<std::string> Findings(const std::string& text) {
  constexpr const char* kKinds[] = {"note", "warning", "error"};
  std::vector<std::string> lines;
  for (const PolicyFinding& finding : ReadPolicy(text).findings) {
    lines.push_back(fmt::format("{}:{} {} {}", finding.line, finding.column,
                                kKinds[static_cast<std::size_t>(finding.kind)], finding.text));
  }
  return lines;
}

std::string Replaced(std::string text, const std::string& old, const std::string& with) {
  const std::size_t at = text.find(old);
  EXPECT_NE(at, std::string::npos) << old;
  return text.replace(at, old.size(), with);
}

struct Row {
  const char* name;
  const char* old;
  std::string with;
  std::vector<const char*> findings;  // each begins as told
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class PolicyFindings : public testing::TestWithParam<Row> {};

TEST_P(PolicyFindings, AreTold) {
  std::vector<testing::Matcher<std::string>> expected;
  for (const char* finding : GetParam().findings) {
    expected.emplace_back(testing::StartsWith(finding));
  }
  EXPECT_THAT(Findings(Replaced(kGood, GetParam().old, GetParam().with)), testing::ElementsAreArray(expected));
}

constexpr const char* kVid = R"(<PciVid value="8086" />)";
constexpr const char* kLan = R"(<FlexBootTarget value="LAN">
      <PciVid value="8086" />)";

std::string Target(const std::string& type, const std::string& elements) {
  return fmt::format("<FlexBootTarget value=\"{}\">\n      {}", type, elements);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PolicyFindings,
    testing::Values(
        Row{"Nothing", kVid, kVid, {}}, Row{"Prefix", "8086", "0x8086", {"9:7 warning <PciVid: \"0x8086\" becomes 0"}},
        Row{"DigitsCutTo16Bits", "8086", "18086", {"9:7 warning <PciVid: \"18086\" becomes 0x8086: at most 0xffff"}},
        Row{"NoNumber", "8086", "intel", {"9:7 warning <PciVid: \"intel\" becomes 0x0: \"intel\" is no hexadecimal"}},
        Row{"NotTakenByEngine", "8086", "ff", {"9:7 warning <PciVid: ff is taken for no number"}},
        Row{"CountIsHexadecimal",
            R"(value="1")",
            R"(value="10")",
            {"5:5 warning NumBootTargets \"10\" is hexadecimal and announces 16 targets; there is 1"}},
        Row{"CountTooSmall", R"(value="1" /)", R"(value="0" /)", {"8:5 warning not used: NumBootTargets announces 0"}},
        Row{"NoCount",
            R"(<NumBootTargets value="1" />)",
            "",
            {"1:1 warning the header has no NumBootTargets", "8:5 warning not used"}},
        Row{"BootTypeInCapitals", "\"uefi\"", "\"UEFI\"", {"4:5 warning BootType \"UEFI\" is neither legacy nor uefi"}},
        Row{"HeaderElementTwice",
            "<NumBootTargets",
            "<BootType value=\"legacy\" /><NumBootTargets",
            {"5:5 warning <BootType> was given before; the first one counts"}},
        Row{"CutText",
            "<NumBootTargets",
            "<Version value=\"0123456789abcdef\" /><NumBootTargets",
            {"5:5 warning <Version: cut to 15 characters"}},
        Row{"LongValue",
            "8086",
            std::string(80, '1'),
            {"9:7 warning <PciVid: a value of 80 characters or more is read as none",
             "9:7 warning <PciVid: \"NoValue\" becomes 0x0"}},
        Row{"UnknownType", "\"LAN\"", "\"Lan Port\"", {"8:5 warning \"Lan Port\" is no target type"}},
        Row{"EndsTheList", "\"LAN\"", "\"NonPolicyTarget\"", {"8:5 warning a NonPolicyTarget ends the list"}},
        Row{"OfOtherTypes", kVid, R"(<HDDSlot value="1" />)", {"9:7 warning a LAN target does not look at <HDDSlot>"}},
        Row{"UnknownElement", kVid, R"(<Speed value="1" />)", {"9:7 warning <Speed> is no element of a target"}},
        Row{"NoBlankBeforeSlash", kVid, "<PciVid/>", {"9:7 warning <PciVid/> is not seen: put a blank"}},
        Row{"TabBehindName",
            kVid,
            "<PciVid\tvalue=\"8086\" />",
            {"9:7 warning <PciVid is not seen: a blank must follow the name"}},
        Row{"NoQuotes",
            kVid,
            "<PciVid value=8086 />\n      <PciDid value=\"1\" />",
            {"9:7 warning <PciVid has no value between double quotes: the driver takes that of <PciDid>",
             "9:21 warning not well-formed XML"}},
        Row{"CommentTakesNextValue",
            kVid,
            "<!-- port --><PciVid value=\"8086\" />",
            {"9:7 warning a comment, which is an element to the driver, has no value between double quotes: the driver "
             "takes that of <PciVid>"}},
        Row{"CommentAroundElement", kVid, "<!-- <PciVid value=\"8086\" /> -->", {"9:7 note the driver knows no comm"}},
        Row{"CommentBetweenTargets",
            "<FlexBootTarget ",
            "<!--x--><FlexBootTarget ",
            {"8:5 error the driver refuses the policy: <!--x--> stands between targets", "8:5 note"}},
        Row{"CommentInFrontOfRoot",
            "<FlexBootOrder>",
            "<!-- mine --><FlexBootOrder>",
            {"2:14 error the driver refuses the policy: the root's first element is <FlexBootOrder>, expected "
             "<FlexBootOrderHeader> (a comment"}},
        Row{"NoDeclaration", "<?xml version=\"1.0\"?>", "", {"1:1 error the driver refuses the policy: it does not"}},
        Row{"NoEnd",
            "</FlexBootTargets>\n</FlexBootOrder>\n",
            "",
            {"11:3 warning not well-formed XML",
             "11:3 error the driver refuses the policy: the text ends before "
             "</FlexBootTargets>"}},
        Row{"TargetEndInOtherCase",
            "</FlexBootTarget>",
            "</flexboottarget>",
            {"10:7 warning not well-formed XML",
             "13:1 error the driver refuses the policy: the text ends before "
             "</FlexBootTarget>"}},
        Row{"LoaderInOtherCase",
            kVid,
            R"(<BootloaderPath value="\EFI\" />)",
            {"9:7 warning <BootloaderPath> is not seen"}},
        Row{"LoaderPathForLinux",
            kVid,
            R"(<BootLoaderPath value="EFI/debian" />)",
            {"9:7 note <BootLoaderPath: read as \\EFI\\debian\\"}},
        Row{"LoaderPlaceAlone",
            kVid,
            R"(<UniquePartitionGUID value="4D9A3C11-0013-4000-8000-000000000004" />)",
            {"8:5 warning says where a loader lies but names none"}},
        Row{"Mac", kVid, R"(<MACAddress value="02-00-00-00-00-01" />)", {"9:7 warning <MACAddress: \"02-00-00"}},
        Row{"PciAddressWithoutSegment",
            kVid,
            R"(<PciAddress value="3b:00.1" />)",
            {"9:7 warning <PciAddress: \"3b:00.1\" becomes 003b:00:01.0: expected segment:bus:device.function",
             "9:7 note <PciAddress: on a server under the central manager"}},
        Row{"SlotOfOtherServers",
            kVid,
            R"(<PciSlotId value="SIOC1" />)",
            {"9:7 warning <PciSlotId: names a slot that this platform does not have"}},
        Row{"VirtualAdapterHalfNamed",
            kVid,
            R"(<VeyraOrla value="yes" /><VnicOrder value="1" />)",
            {"9:7 warning <VeyraOrla: a virtual adapter is found by <VnicOrder> and <PhysicalAdaptorSlotNum>, both"}},
        Row{"NothingSelects", kLan, Target("USB", ""), {"8:5 warning selects nothing: a USB target selects by"}},
        Row{"LoaderOfAnyDisk",
            kLan,
            Target("OnboardHDD", R"(<HDDSlot value="1" /><BootLoaderName value="x.efi" />)"),
            {"8:5 warning takes its loaders from any disk: OnboardHDD refuses nothing else"}},
        Row{"OnceOnly",
            kLan,
            Target("LANAny", "</FlexBootTarget><FlexBootTarget value=\"LANAny\">"),
            {"9:24 warning not used"}},
        Row{"PortName",
            kLan,
            Target("SAN", R"(<PrimaryTargetWWPN value="5006016" />)"),
            {"9:7 warning <PrimaryTargetWWPN: \"5006016\" is no port name"}},
        Row{"Word",
            kLan,
            Target("VirtualMedia", R"(<VMSubType value="IXMOVMediaFDD" />)"),
            {"9:7 warning <VMSubType: \"IXMOVMediaFDD\" becomes 0, which stands for any"}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PolicyFindingsOf, TargetsAfterOneThatEndsTheList) {
  const std::string two = Replaced(Replaced(kGood, "value=\"1\"", "value=\"2\""), kLan,
                                   Target("LANAny", "</FlexBootTarget>\n    <FlexBootTarget value=\"LANAny\">"));
  EXPECT_THAT(Findings(two), testing::ElementsAre(testing::StartsWith(
                                 "10:5 warning selects nothing: a policy's first LANAny target is its only one")));
  EXPECT_THAT(Findings(Replaced(two, "LANAny", "Network")),
              testing::ElementsAre(testing::StartsWith("8:5 warning \"Network\" is no target type"),
                                   testing::StartsWith("10:5 warning not used: a target before it")));
}

TEST(PolicyFindingsOf, TextsBeyondTheDriversBuffer) {
  const std::string head = Replaced(kGood, "<FlexBootOrder>", "<FlexBootOrder>" + std::string(4095, ' '));
  EXPECT_THAT(Findings(head),
              testing::Contains(testing::HasSubstr("error the driver refuses the policy: the text ends")));
  EXPECT_THAT(Findings(kGood + std::string(4096, '\n')),
              testing::ElementsAre(testing::HasSubstr("warning the driver reads 4095 bytes and no more")));
}

// Those that come with the project: one with a note, since no server of this platform has the device.
TEST(PolicyFindingsOf, Examples) {
  std::size_t policies = 0;
  for (const auto& entry : std::filesystem::directory_iterator("examples/policies")) {
    if (entry.path().extension() != ".xml") {
      continue;
    }
    ++policies;
    const std::vector<std::string> findings = Findings(ReadPolicyFile(entry.path()));
    if (entry.path().stem() == "ixmo_vmedia_fdd") {
      EXPECT_THAT(findings, testing::ElementsAre(testing::HasSubstr("note selects nothing")));
    } else {
      EXPECT_THAT(findings, testing::IsEmpty()) << entry.path();
    }
  }
  EXPECT_EQ(policies, 31U);
}

}  // namespace
}  // namespace sim
