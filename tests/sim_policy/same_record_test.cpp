// What the tool makes of a policy is what the driver makes of it: verdict, record and loaders, over hundreds of texts.
#include <random>

#include "flexboot/policy_parser.h"
#include "flexboot/state.h"
#include "sim/policy/policy_reading.h"
#include "tests/support/driver_fixture.h"

namespace sim {
namespace {

// Pieces of policies, good and bad, of which texts are put together.
constexpr const char* kHeaderPieces[] = {
    R"(<BootType value="uefi" />)",
    R"(<NumBootTargets value="3" />)",
    R"(<NumBootTargets value="a" />)",
    R"(<Version value="1" />)",
    R"(<version value="22222222222222222222" />)",
    R"(<!-- x -->)",
    R"(<Unknown />)",
    R"(<ServiceProfile/>)",
    R"(<BootPolicyName value=x />)",
};
constexpr const char* kElements[] = {
    R"(<PciVid value="8086" />)",
    R"(<pcivid value="0x12"/>)",
    R"(<PciDid value="" />)",
    R"(<PciAddress value="0000:3b:00.1" />)",
    R"(<PciAddress value="0:0:0.0" />)",
    R"(<PciAddress value="x" />)",
    R"(<MACAddress value="02:00:00:00:02:01" />)",
    R"(<MACAddress value="02-00" />)",
    R"(<VeyraOrla value="YES" />)",
    R"(<VnicOrder value="-1" />)",
    R"(<VhbaOrder value="99999999999" />)",
    R"(<PhysicalAdaptorSlotNum value="mlom" />)",
    R"(<PciSlotId value="HBA" />)",
    R"(<PortNum value="12" />)",
    R"(<LunId value="1ff" />)",
    R"(<WWPN value="5" />)",
    R"(<RN value="0123456789012345678901234567890123456789012345678901234567" />)",
    R"(<HDDSlot value="2" />)",
    R"(<RetrySameCategoryDevices value="no" />)",
    R"(<RetrySameCategoryDevices value="maybe" />)",
    R"(<USBSubType value="cd" />)",
    R"(<VMSubType value="x" />)",
    R"(<Shell />)",
    R"(<!--c-->)",
    R"(<!-- c -->)",
    R"(<BootLoaderPath value="EFI/a//b" />)",
    R"(<BootLoaderName value="x.efi" />)",
    R"(<bootloadername value="y" />)",
    R"(<DeviceName value="d" />)",
    R"(<UniquePartitionGUID value="1" />)",
    R"(<PrimaryTargetUEFIBootParam><BootLoaderPath value="\p" /></PrimaryTargetUEFIBootParam>)",
    R"(<SecondaryTargetUEFIBootParam><BootLoaderName value="n" /></SecondaryTargetUEFIBootParam>)",
    R"(<PrimaryTargetUEFIBootParam>)",
    "</FlexBootTarget>",
    "text",
    "\t\r\n",
    "<",
    "\"",
    "=",
};

class SameRecord : public test::DriverTest {
 protected:
  template <std::size_t N>
  const char* OneOf(const char* const (&pieces)[N]) {
    return pieces[random_() % N];
  }
  bool OneIn(unsigned n) { return random_() % n == 0; }

  std::string RandomTarget() {
    const auto type = random_() % (bds::kTargetTypeCount + 1);
    const char* word = type < bds::kTargetTypeCount - 1 ? bds::kTargetTypes[type].Word : "Unknown";
    std::string text = std::string("<FlexBootTarget value=\"") + word + "\">\n";
    for (auto count = random_() % 7; count != 0; --count) {
      text += std::string(OneOf(kElements)) + "\n";
    }
    return text + (OneIn(12) ? "</flexbootTARGET>" : "</FlexBootTarget>");
  }

  std::string RandomPolicy() {
    std::string text = "<?xml version=\"1.0\"?>\n<Root><FlexBootOrderHeader>";
    for (auto count = random_() % 5; count != 0; --count) {
      text += OneOf(kHeaderPieces);
    }
    text += "</FlexBootOrderHeader><FlexBootTargets>";
    for (auto count = random_() % 5; count != 0; --count) {
      text += RandomTarget();
    }
    text += "</FlexBootTargets></Root>";
    if (OneIn(8)) {
      text.resize(random_() % text.size());
    }
    if (OneIn(8) && !text.empty()) {
      text[random_() % text.size()] = static_cast<char>(random_());
    }
    return text;
  }

  // The driver's verdict on the text and, when it takes it, the record.
  bool Drive(const std::string& text, std::vector<std::byte>& record) {
    bds::StartFresh(bds::gFlexBoot);
    const std::size_t length = std::min(text.find('\0'), text.size());
    bds::XML_CURSOR cursor = bds::StartXml(text.c_str(), length);
    FLEXBOOT_ORDER_HEADER header{};
    if (EFI_ERROR(bds::IsolateBootHeader(cursor, header))) {
      return false;
    }
    record.assign(bds::FlexBootOrderSize(header.NumBootTargets), {});
    std::memcpy(record.data(), &header, sizeof(header));
    return !EFI_ERROR(bds::IsolateBootTargets(cursor, *reinterpret_cast<FLEXBOOT_ORDER_HEADER*>(record.data())));
  }

  // The loaders of the targets, those of SAN pairs left out.
  static std::vector<std::string> DriversLoaders() {
    std::vector<std::string> texts;
    if (!bds::gFlexBoot.mUefiParamTargets) {
      return texts;
    }
    for (const auto* target = bds::gFlexBoot.mUefiParamTargets.get()->First; target != nullptr; target = target->Next) {
      for (const auto* tag = target->TagList.First; tag != nullptr; tag = tag->Next) {
        const std::string name = tag->Name;
        if (!name.starts_with("Pri") && !name.starts_with("Sec")) {
          texts.push_back(name + " " + tag->Value);
        }
      }
    }
    return texts;
  }
  static std::vector<std::string> ToolsLoaders(const PolicyReading& reading) {
    std::vector<std::string> texts;
    const std::size_t used = std::min(reading.loaders.size(), reading.targets.size());
    for (const auto& target : std::span(reading.loaders).first(used)) {
      for (const LoaderText& text : target) {
        if (!text.name.starts_with("Pri ") && !text.name.starts_with("Sec ")) {
          texts.push_back(text.name + " " + text.value);
        }
      }
    }
    return texts;
  }

  std::mt19937 random_{20261124};
};

TEST_F(SameRecord, OfSomeHundredTexts) {
  bds::gDebug.Mask = 0;
  unsigned taken = 0;
  for (unsigned round = 0; round < 1000; ++round) {
    const std::string text = RandomPolicy();
    SCOPED_TRACE(text);
    const PolicyReading reading = ReadPolicy(text);
    std::vector<std::byte> record;
    const bool accepted = Drive(text, record);
    ASSERT_EQ(!reading.refused, accepted);
    if (!accepted) {
      continue;
    }
    ++taken;
    std::vector<std::byte> tools(sizeof(reading.header));
    std::memcpy(tools.data(), &reading.header, sizeof(reading.header));
    const auto targets = std::as_bytes(std::span(reading.targets));
    tools.insert(tools.end(), targets.begin(), targets.end());
    ASSERT_EQ(tools, record);
    ASSERT_EQ(ToolsLoaders(reading), DriversLoaders());
  }
  EXPECT_GT(taken, 200U);
  EXPECT_LT(taken, 900U);
}

}  // namespace
}  // namespace sim
