// Which options the management mode and the UEFI setting delete, switch or leave.
#include <cstring>

#include "bmc/restored_marker.h"
#include "bmc/steps.h"
#include "platform/setup_variable.h"
#include "support/text.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

// One option of each kind that the rules tell apart, by name.
class ModeFilter : public BmcFixture {
 protected:
  bds::BOOT_OPTION& Add(const char16_t* name, const Bytes& nodes) {
    bds::BOOT_OPTION* option = bds::CreateBootOption(bds::BootOptionList);
    option->Description = bds::CopyText(name, bds::TextLength(name));
    if (!nodes.empty()) {
      Bytes path = nodes;
      path.insert(path.end(), {0x7F, 0xFF, 4, 0});
      option->FilePathList.reset(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(bds::AllocatePool(path.size())));
      std::memcpy(option->FilePathList.get(), path.data(), path.size());
      option->FilePathListLength = path.size();
    }
    return *option;
  }
  static Bytes BuiltIn() {
    Bytes node{4, 3, 20, 0};
    const auto* guid = reinterpret_cast<const std::uint8_t*>(&bds::kBuiltInApplicationGuid);
    node.insert(node.end(), guid, guid + 16);
    return node;
  }
  void AddAll() {
    const Bytes bbs{5, 1, 8, 0, 2, 0, 0, 0};
    Add(u"acpi", {2, 1, 12, 0, 0xD0, 0x41, 3, 0x0A, 0, 0, 0, 0});
    Add(u"media", {4, 4, 8, 0, 'a', 0, 0, 0});
    Add(u"pci", {1, 1, 6, 0, 0, 0x1F});
    Add(u"messaging", {3, 5, 6, 0, 1, 0});
    Add(u"shell", BuiltIn());
    Add(u"header", bbs).GroupHeader = TRUE;
    Add(u"member", bbs);
    Add(u"pathless bbs", {}).BbsEntry = &entry;
    Add(u"pathless", {});
  }
  std::string Names() {
    std::string names;
    for (const bds::BOOT_OPTION* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      names += names.empty() ? "" : " ";
      for (const char16_t* c = option->Description.get(); *c != 0; ++c) {
        names += static_cast<char>(*c);
      }
      names += (option->Attributes & LOAD_OPTION_ACTIVE) != 0 ? "+" : "-";
    }
    return names;
  }
  BBS_TABLE entry{};
};

constexpr char kAll[] = "acpi+ media+ pci+ messaging+ shell+ header+ member+ pathless bbs+ pathless+";

TEST_F(ModeFilter, ModeAndUefiSettingDecide) {
  const struct {
    const char* what;
    UINT8 mode;
    UINT8 flag;
    UINT8 uefi;
    const char* left;
    bool markerDeleted;
    const char* says = "";
  } cases[] = {
      {"standalone, off", 0, 0, 0, "acpi- media- pci+ messaging+ shell+ header+ member+ pathless bbs+ pathless+", false,
       "RemoveNonSupportedBootOptions:Server is in Standalone mode with UEFI mode turned off\n"
       "**** Making  option  non active: acpi \n**** Making  option  non active: media \n"},
      {"standalone, on", 0, 0, 1, kAll, false},
      {"standalone, neither", 0, 0, 2, kAll, false},
      {"standalone with the flag", 0, 1, 1, kAll, false},
      {"managed, on", 1, 0, 1, "acpi+ media+ pci+ messaging+ shell+ pathless+", false,
       "RemoveNonSupportedBootOptions:Server is in Zephan mode with UEFI mode turned on\n"
       "**** Delete option : header \n"},
      {"managed, on by another value", 1, 0, 2, "acpi+ media+ pci+ messaging+ shell+ pathless+", false},
      {"managed, off", 1, 0, 0, "shell+ header+ member+ pathless bbs+", true,
       "RemoveNonSupportedBootOptions:Server is in Zephan mode with UEFI mode turned off\n"
       "**** Delete option : acpi \n"},
      {"config mode, off", 1, 1, 0, kAll, false,
       "RemoveNonSupportedBootOptions:Server is in Zephan config mode, Keeping all the boot options alive\n"},
      {"config mode, on", 1, 1, 1, kAll, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    NextBoot();
    SetSetup({{kSetupUefiMode, c.uefi}});
    SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {1, 0});
    PublishMode(c.mode, c.flag);
    bds::DetectZephanConfigMode();
    AddAll();
    bds::RemoveNonSupportedBootOptions();
    EXPECT_EQ(Names(), c.left);
    EXPECT_TRUE(Logged(c.says)) << Log();
    EXPECT_EQ(Logged("Delete option") || Logged("non active"), Names() != kAll) << Log();
    EXPECT_EQ(Variable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid).has_value(), !c.markerDeleted);
  }
}

TEST_F(ModeFilter, ADescriptionDoesNotSteerTheTerminalThatShowsTheLog) {
  SetSetup({{kSetupUefiMode, 1}});
  PublishMode(1, 0);
  Add(u"a\x1B[2Jb\x7F", {5, 1, 8, 0, 2, 0, 0, 0});
  bds::RemoveNonSupportedBootOptions();
  EXPECT_TRUE(Logged("**** Delete option : a?[2Jb? \n"));
}

TEST_F(ModeFilter, AnInactiveOptionOnAnAcpiPathIsActivatedByUefiModeOne) {
  PublishMode(0, 0);
  SetSetup({{kSetupUefiMode, 1}});
  AddAll();
  for (bds::BOOT_OPTION* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
    option->Attributes = LOAD_OPTION_HIDDEN;
  }
  bds::RemoveNonSupportedBootOptions();
  EXPECT_EQ(Names(), "acpi+ media+ pci- messaging- shell- header- member- pathless bbs- pathless-");
  EXPECT_EQ(bds::BootOptionList.First->Attributes, LOAD_OPTION_HIDDEN | LOAD_OPTION_ACTIVE);
  EXPECT_TRUE(
      Logged("RemoveNonSupportedBootOptions:System Mode : 0 UEFI : 1\n"
             "RemoveNonSupportedBootOptions:Server is in Standalone mode with UEFI mode turned on\n"
             "**** Making  option active : acpi \n"));
}

TEST_F(ModeFilter, WithoutSetupOrInterfaceEveryOptionStaysAsItIs) {
  PublishMode(1, 0);
  AddAll();
  bds::RemoveNonSupportedBootOptions();
  EXPECT_EQ(Names(), kAll);
  EXPECT_TRUE(Logged("RemoveNonSupportedBootOptions:Failed reading Setup:EFI_NOT_FOUND\n"));
}

TEST_F(ModeFilter, WithoutTheInterfaceNothingIsFiltered) {
  SetSetup({});
  AddAll();
  bds::RemoveNonSupportedBootOptions();
  bds::RemoveOrphanOptions();
  EXPECT_EQ(Names(), kAll);
  EXPECT_TRUE(Logged("UEFIBoot: fails to locate protocol using VEYRA_ZEPHAN_MODE_GUID. \n"));
}

TEST_F(ModeFilter, OrphansGoOnAManagedServerAndInStbuMode) {
  const struct {
    UINT8 mode;
    UINT8 stbu;
    bool removed;
  } cases[] = {{0, 0, false}, {0, 1, true}, {1, 0, true}, {1, 1, true}, {2, 0, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << int{c.mode} << int{c.stbu});
    NextBoot();
    SetSetup({{kSetupStbuMode, c.stbu}});
    PublishMode(c.mode, 0);
    AddAll();
    bds::BootOptionList.First->DeviceHandle = &entry;
    bds::RemoveOrphanOptions();
    EXPECT_EQ(Names(), c.removed ? "acpi+ pathless bbs+" : kAll);
    EXPECT_EQ(bds::BootOptionList.Count, c.removed ? 2U : 9U);
    EXPECT_EQ(Logged("RemoveOrphanOptions() \nZephan mode \n****Found an orphan: Delete option : media \n"), c.removed);
  }
}

}  // namespace
}  // namespace test
