// Policy text in, record out, byte for byte: one target of each type, and what values turn into.
#include <map>

#include "flexboot/policy_parser.h"
#include "flexboot/state.h"
#include "tests/flexboot/policy_text.h"
#include "tests/support/driver_fixture.h"

namespace test {
namespace {

// What an entry's bytes hold, by offset within the entry; all other bytes are 0.
using Contents = std::map<std::size_t, std::string>;

std::string At(std::initializer_list<int> bytes) {
  std::string text;
  for (const int byte : bytes) text.push_back(static_cast<char>(byte));
  return text;
}

class Record : public DriverTest {
 protected:
  EFI_STATUS Parse(const std::string& policy) {
    bds::XML_CURSOR cursor = bds::StartXml(policy.data(), policy.size());
    FLEXBOOT_ORDER_HEADER header{};
    EFI_STATUS status = bds::IsolateBootHeader(cursor, header);
    if (EFI_ERROR(status)) return status;
    bytes_.assign(bds::FlexBootOrderSize(header.NumBootTargets), 0);  // exactly what there is room for
    std::memcpy(bytes_.data(), &header, sizeof(header));
    return bds::IsolateBootTargets(cursor, *reinterpret_cast<FLEXBOOT_ORDER_HEADER*>(bytes_.data()));
  }
  std::string Entry(std::size_t index) const {
    return std::string(bytes_.begin() + static_cast<std::ptrdiff_t>(321 + 312 * index),
                       bytes_.begin() + static_cast<std::ptrdiff_t>(321 + 312 * (index + 1)));
  }
  void TearDown() override {
    if (bds::gFlexBoot.mUefiParamTargets) bds::FreeTargetList(*bds::gFlexBoot.mUefiParamTargets.get());
    DriverTest::TearDown();
  }

  std::vector<char> bytes_;
};

std::string EntryOf(const Contents& contents) {
  std::string entry(312, '\0');
  for (const auto& [offset, bytes] : contents) entry.replace(offset, bytes.size(), bytes);
  return entry;
}

constexpr std::size_t kData = 52;
constexpr char kPciElements[] =
    "<PciVid value=\"1137\" /><PciDid value=\"43\" /><PciSubVid value=\"8086\" /><PciSubDid value=\"fFfF\" />"
    "<PciClassId value=\"2\" /><PciAddress value=\"0000:3b:1f.7\" />";

// The data of a type with a PCI identity, filled by the elements above.
Contents WithPci(Contents contents) {
  contents[kData] =
      At({0x37, 0x11, 1, 0x43, 0, 1, 0x86, 0x80, 1, 0xFF, 0xFF, 1, 2, 0, 1, 0, 0, 0, 0, 0x3B, 0x1F, 7, 1}) +
      "0000:3b:1f.7";
  return contents;
}

TEST_F(Record, EveryTypeHasItsLayout) {
  const std::string retryYes = "<RetrySameCategoryDevices value=\"YES\" />";
  const std::string retryNo = "<RetrySameCategoryDevices value=\"no\" />";
  const std::string rn = "<RN value=\"name\" />";
  const std::string pci = kPciElements;
  const std::string network =
      "<MACAddress value=\"00:25:b5:0A:0b:1f\" /><VeyraOrla value=\"yes\" /><VnicOrder value=\"12\" />"
      "<PhysicalAdaptorSlotNum value=\"mlom\" /><PciSlotId value=\"L\" /><PortNum value=\"10\" />";
  const Contents any{{2, "name"}, {kData, At({1, 1})}};
  const Contents lun{{kData, At({0x1F, 1, 0, 1})}};
  const auto networkData = [](int port) {
    return WithPci(
        {{2, "name"}, {kData + 39, At({0, 0x25, 0xB5, 0x0A, 0x0B, 0x1F, 1, 1, 1, 12, 0, 0, 0,   0, 0,    0, 0,
                                       1, 3,    0,    0,    0,    0,    0, 0, 0, 1,  1, 1, 'L', 1, port, 1})}});
  };
  const struct {
    const char* type;
    std::string elements;
    int code;
    Contents contents;
  } cases[] = {
      {"LocalStorageAny", retryYes + rn, 0, any},
      {"LocalHDDAny", retryYes + rn, 1, any},
      {"ISCSIAny", retryYes + rn, 2, any},
      {"OnboardHDD", "<HDDSlot value=\"1f\" />" + rn + retryYes, 3, {{2, "name"}, {kData, At({0x1F, 1})}}},
      {"OnboardHDDAny", rn + retryYes, 4, {{2, "name"}}},
      {"LocalHDD", pci + rn + "<ControllerId value=\"a\" /><LunId value=\"b\" /><PciSlotId value=\"HBA\" />" + retryNo,
       5, WithPci({{2, "name"}, {kData + 39, At({10, 1, 11, 1, 0, 1, 4, 1})}})},
      {"SANAny", retryYes + rn, 6, any},
      {"SAN",
       pci + rn + retryYes +
           "<WWNN value=\"20:00\" /><WWPN value=\"20:01\" /><PrimaryTargetWWPN value=\"50:0a\" />"
           "<VeyraOrla value=\"no\" /><VhbaOrder value=\"2\" /><PhysicalAdaptorSlotNum value=\"SIOC1\" />"
           "<LunId value=\"10\" /><PciSlotId value=\"MLOM\" />",
       7,
       WithPci({{2, "name"},
                {kData + 39, "20:00"},
                {kData + 103, At({1})},
                {kData + 104, "20:01"},
                {kData + 168, At({1})},
                {kData + 169, "50:0a"},
                {kData + 233, At({1, 0, 1, 2})},
                {kData + 244, At({1, 255})},
                {kData + 253, At({1, 16, 1, 1, 1, 3, 1})}})},
      {"NVMEAny", retryYes + rn, 8, any},
      {"lanany", retryYes + rn, 9, any},
      {"LAN", pci + network + retryYes + rn, 10, networkData(10)},
      {"ISCSI", pci + network + retryYes + rn, 11, networkData(16)},
      {"LocalCDD", "<LunId value=\"1f\" />" + retryNo + rn, 12, lun},
      {"LocalFDD", "<LunId value=\"1f\" />" + retryNo + rn, 13, lun},
      {"USB", "<USBSubType value=\"cd\" />" + rn, 14, {{2, "name"}, {kData, At({3, 1})}}},
      {"InternalUSB", "<LunId value=\"1f\" />" + retryNo + rn, 15, {{kData, At({0x1F, 1, 0, 0})}}},
      {"InternalUSB", "<LunId value=\"1f\" />" + retryYes, 15, {{kData, At({0x1F, 1, 1, 1})}}},
      {"ExternalUSB", "<LunId value=\"1f\" />" + retryNo + rn, 16, lun},
      {"SDCard",
       "<ControllerId value=\"1\" /><LunId value=\"2\" />" + retryYes + rn,
       17,
       {{2, "name"}, {kData, At({1, 1, 2, 1, 1, 1})}}},
      {"VirtualMedia", "<VMSubType value=\"KVMVMediaFDD\" />" + rn, 18, {{2, "name"}, {kData, At({5, 1})}}},
      {"VirtualMedia", "<VMSubType value=\"IXMOVMediaFDD\" />", 18, {{kData, At({0, 1})}}},
      {"IXMOVMediaCDD", "<LunId value=\"1f\" />" + retryNo + rn, 19, lun},
      {"KVMVMediaCDD", "<LunId value=\"1f\" />" + retryNo + rn, 20, lun},
      {"IXMOVMediaHDD", "<LunId value=\"1f\" />" + retryNo + rn, 21, lun},
      {"KVMVMediaHDD", "<LunId value=\"1f\" />" + retryNo + rn, 22, lun},
      {"IXMOVMediaFDD", "<LunId value=\"1f\" />" + retryNo + rn, 23, lun},
      {"KVMVMediaFDD", "<LunId value=\"1f\" />" + retryNo + rn, 24, lun},
      {"UefiShell", "<Shell value=\"1\" />" + retryYes + rn, 25, {{2, "name"}, {kData, At({1, 1, 1, 1})}}},
      {"NonPolicyTarget", retryYes + rn, 26, {}},
      {"Toaster", retryYes + rn, 27, {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.type);
    bds::StartFresh(bds::gFlexBoot);
    ASSERT_EQ(Parse(Policy(PolicyTarget(row.type, row.elements))), EFI_SUCCESS);
    Contents contents = row.contents;
    contents[0] = At({row.code, row.code < 26 ? 1 : 0});
    EXPECT_EQ(Entry(0), EntryOf(contents));
  }
}

TEST_F(Record, ValuesThatSayNothingOrTooMuch) {
  const std::string of79(79, '7');
  const struct {
    const char* about;
    const char* type;
    std::string elements;
    Contents contents;
    const char* logged;
  } cases[] = {
      {"a prefix ends the number", "LAN", "<PciVid value=\"0x1000\" />", {{kData, At({0, 0, 1})}}, ""},
      {"an empty identity of a LAN is none", "LAN", "<PciVid value=\"\" />", {}, ""},
      {"that of a SAN is 0", "SAN", "<PciVid value=\"\" />", {{kData + 2, At({1})}}, ""},
      {"an empty class is 0", "LAN", "<PciClassId value=\"\" />", {{kData + 14, At({1})}}, ""},
      {"an ISCSI says so", "ISCSI", "<PciSubDid value=\"\" />", {}, "NULL PCI SUB DID \n"},
      {"LAN: no address 0", "LAN", "<PciAddress value=\"0000:00:00.0\" />", {}, ""},
      {"ISCSI: the same, said",
       "ISCSI",
       "<PciAddress value=\"5:0:0.0\" />",
       {},
       "ISCSI : BUS , DEV , FUNC values are ZERO \n"},
      {"LocalHDD: address 0",
       "LocalHDD",
       "<PciAddress value=\"0000:00:00.0\" />",
       {{kData + 22, At({1}) + "0000:00:00.0"}},
       ""},
      {"SAN: an empty address is 0", "SAN", "<PciAddress value=\"\" />", {{kData + 22, At({1})}}, ""},
      {"an address of many parts is cut",
       "LocalHDD",
       "<PciAddress value=\"1:102:3.4:5.6.7.8.9.a\" />",
       {{kData + 18, At({1, 2, 3, 4, 1}) + "1:102:3.4:5.6.7"}},
       ""},
      {"a text is cut to its field",
       "SAN",
       "<WWNN value=\"" + of79 + "\" /><RN value=\"" + of79 + "\" />",
       {{2, of79.substr(0, 49)}, {kData + 39, of79.substr(0, 63)}, {kData + 103, At({1})}},
       ""},
      {"the later of two texts",
       "SAN",
       "<WWNN value=\"long\" /><WWNN value=\"b\" />",
       {{kData + 39, "b"}, {kData + 103, At({1})}},
       ""},
      {"neither yes nor no", "LANAny", "<RetrySameCategoryDevices value=\"maybe\" />", {{kData, At({0, 1})}}, ""},
      {"a MAC without its colons", "LAN", "<MACAddress value=\"0025b50a0b1f\" />", {{kData + 45, At({1})}}, ""},
      {"a MAC cut short", "LAN", "<MACAddress value=\"00:25:b5:0a:0b\" />", {{kData + 45, At({1})}}, ""},
      {"a negative order fills its field",
       "LAN",
       "<VnicOrder value=\"-1\" />",
       {{kData + 48, std::string(8, '\xFF') + At({1})}},
       ""},
      {"a number is cut to its field", "OnboardHDD", "<HDDSlot value=\"123\" />", {{kData, At({0x23, 1})}}, ""},
      {"slot words of another type", "LAN", "<PciSlotId value=\"M\" />", {{kData + 69, At({1})}}, ""},
      {"elements of other types",
       "LANAny",
       std::string(kPciElements) + "<LunId value=\"1\" /><Foo value=\"1\" />",
       {},
       ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.about);
    bds::StartFresh(bds::gFlexBoot);
    ASSERT_EQ(Parse(Policy(PolicyTarget(row.type, row.elements))), EFI_SUCCESS);
    Contents contents = row.contents;
    contents[0] = At({static_cast<int>(bds::FindTargetType(row.type)), 1});
    EXPECT_EQ(Entry(0), EntryOf(contents));
    EXPECT_TRUE(Logged(row.logged));
  }
}

TEST_F(Record, HeaderElementsCountOnceAndTargetsAsAnnounced) {
  const std::string lan = PolicyTarget("LANAny", "");
  const std::string long79(79, 'x');
  const std::string policy = "<?xml?><Root><flexbootorderheader><Version value=\"" + long79 +
                             "\" /><Version value=\"2\" /><Foo /><NumBootTargets value=\"a\" />"
                             "</FlexBootOrderHeader><Other value=\"1\" />" +
                             "<FlexBootTargets>" + lan + PolicyTarget("USB", "") + "</FlexBootTargets> ";
  ASSERT_EQ(Parse(policy), EFI_SUCCESS);
  ASSERT_EQ(bytes_.size(), 3441U) << "ten in hexadecimal";
  EXPECT_STREQ(bytes_.data(), long79.substr(0, 15).c_str());
  EXPECT_EQ(Entry(1), EntryOf({{0, At({14, 1})}}));
  EXPECT_EQ(Entry(2), EntryOf({}));

  bds::StartFresh(bds::gFlexBoot);
  ASSERT_EQ(Parse(Policy(lan + lan + PolicyTarget("USB", "<BootLoaderName value=\"a\" />"), "2")), EFI_SUCCESS);
  EXPECT_EQ(bds::gFlexBoot.mUefiParamTargets.get()->Count, 2U) << "the third was not announced";
}

TEST_F(Record, WhatIsNoPolicyIsRefused) {
  const std::string lan = PolicyTarget("LANAny", "");
  const struct {
    const char* about;
    std::string policy;
    EFI_STATUS status;
  } cases[] = {
      {"empty", "", EFI_DEVICE_ERROR},
      {"no declaration", Policy(lan).substr(21), EFI_UNSUPPORTED},
      {"another first group", "<?xml?><R><Foo><FlexBootOrderHeader> ", EFI_INVALID_PARAMETER},
      {"no end of the header", "<?xml?><R><FlexBootOrderHeader><Version value=\"1\" /> ", EFI_DEVICE_ERROR},
      {"something between targets", Policy(lan + "<!-- two -->" + lan, "2"), EFI_INVALID_PARAMETER},
      {"no end of a target", Policy("<FlexBootTarget value=\"LAN\"><PciVid value=\"1\" />"), EFI_DEVICE_ERROR},
      {"no end of a loader group", Policy(PolicyTarget("SAN", "<PrimaryTargetUEFIBootParam>")), EFI_DEVICE_ERROR},
  };
  for (const auto& row : cases) {
    bds::StartFresh(bds::gFlexBoot);
    EXPECT_EQ(Parse(row.policy), row.status) << row.about;
  }
}

}  // namespace
}  // namespace test
