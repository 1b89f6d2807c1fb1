// New options, tags, numbers and priorities, and what the processing steps remove or hide.
#include <gtest/gtest.h>

#include "bootopt/file_path_builders.h"
#include "bootopt/groups.h"
#include "bootopt/steps.h"
#include "platform/flexboot_protocol.h"
#include "platform/setup_variable.h"
#include "support/format.h"
#include "tests/support/boot_server.h"

namespace {

using namespace bdstest;

void StoreBootVariable(FakeServer& firmware, const std::u16string& name) {
  firmware.SetVariable(name, gEfiGlobalVariableGuid, 7, B({1, 2, 3}));
}
void EnableStbu(FakeServer& firmware, bool on, std::size_t size = kSetupSize) {
  Blob setup(size);
  if (size > kSetupStbuMode) {
    setup[kSetupStbuMode] = on ? std::byte{1} : std::byte{0};
  }
  firmware.SetVariable(kSetupName, kSetupGuid, 7, setup);
}

TEST(NewOptions, PathsOfALegacyDevice) {
  BBS_TABLE entry{};
  entry.DeviceType = BBS_TYPE_HARDDRIVE;
  entry.Bus = 4;
  entry.Device = 5;
  entry.Function = 6;
  entry.Class = 1;
  entry.SubClass = 4;
  const Blob bbs = Bbs(2) + End();
  const Blob place = HardwareVendor(bds::kLegacyLocationGuid, B({4, 5, 6, 1, 4, 1})) + End();
  const Blob disk = PciRoot() + Pci(31, 2) + End();
  const std::u16string serial = u"SN1                 ";
  const Blob name = HardwareVendor(bds::kDeviceNameGuid, Utf16(serial)) + End();

  struct Case {
    const char* Name;
    bool Handle;
    bool Path;
    bool Serial;
    Blob Expected;
  };
  const Case cases[] = {
      {"no handle", false, false, false, bbs + place},
      {"handle without path", true, false, false, bbs + place},
      {"handle with path", true, true, false, bbs + disk},
      {"handle with path and name", true, true, true, bbs + disk + name},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    fake::DiskInfo info("SN1");
    BBS_TABLE* table = firmware.PublishBbsTable(std::vector<BBS_TABLE>(27, entry));
    table[25].Function = 7;  // ends the run of equal neighbours
    table[27] = entry;
    table[26] = entry;
    const EFI_HANDLE handle = row.Handle ? firmware.AddHandle(row.Path ? disk : Blob{}) : nullptr;
    if (row.Serial) {
      firmware.Install<EFI_DISK_INFO_PROTOCOL>(handle, info);
    }
    bds::CreateBootDevice(bds::BootDeviceList, handle, 27, &table[27]);
    bds::CreateBootOptionsForNewBootDevices();
    ASSERT_EQ(bds::BootOptionList.Count, 1u);
    const bds::BOOT_OPTION& option = *bds::BootOptionList.First;
    EXPECT_EQ(PathOf(option), row.Expected);
    EXPECT_EQ(option.FwBootOption, TRUE);
    EXPECT_EQ(option.BootOptionNumber, bds::kNoBootOptionNumber);
    EXPECT_EQ(option.Tag, bds::kUnassigned);
    EXPECT_TRUE(option.Description);
    EXPECT_EQ(bds::BootDeviceList.Count, 0u);
  }
}

TEST(NewOptions, APieceThatWouldOutgrowTheLengthFieldIsLeftOut) {
  FakeServer firmware;
  BBS_TABLE entry{};
  auto& option = AddOption(Node(3, 10, Blob(0xFFF0)) + End());
  option.BbsEntry = &entry;
  const UINTN length = option.FilePathListLength;
  EXPECT_FALSE(bds::BuildFilePathList(option));
  EXPECT_EQ(option.FilePathListLength, length);
}

TEST(Tags, FollowGroupAndPosition) {
  struct Case {
    const char* Name;
    Blob Path;
    UINT32 Tag;
  };
  const Case cases[] = {
      {"floppy", Bbs(1) + End(), 0x00020000},
      {"hard disk", Bbs(2) + End(), 0x00000001},
      {"CD-ROM", Bbs(3) + End(), 0x00010002},
      {"PCMCIA: no place in the order", Bbs(4) + End(), 0xFFFF0003},
      {"USB", Bbs(5) + End(), 0xFFFF0004},
      {"network", Bbs(6) + End(), 0x00030005},
      {"boot entry vector", Bbs(0x80) + End(), 0xFFFF0006},
      {"a type without a group", Bbs(0x81) + End(), 0xFFFFFFFF},
      {"a node without a type", Node(5, 1) + End(), 0xFFFFFFFF},
      {"built-in application", BuiltInApplication() + End(), 0x00040008},
      {"UEFI", PciRoot() + End(), 0x00050107},
      {"built-in application's GUID, longer node",
       Node(4, 3, LittleEndian(bds::kBuiltInApplicationGuid) + Blob(4)) + End(), 0x00050107},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    const auto& option = AddOption(row.Path);
    bds::SetDefaultBootOptionTags();
    EXPECT_EQ(option.Tag, row.Tag) << std::hex << option.Tag;
  }
}

TEST(Tags, TheBootsGroupOrderDecidesThePosition) {
  FakeServer firmware;
  bds::gBootOptions.GroupOrder = {{bds::kGroupNetwork, bds::kGroupHardDisk, bds::kNoGroup, bds::kNoGroup, bds::kNoGroup,
                                   bds::kNoGroup, bds::kNoGroup, bds::kNoGroup}};
  const auto& disk = AddOption(Bbs(2) + End());
  const auto& uefi = AddOption(PciRoot() + End());
  bds::SetDefaultBootOptionTags();
  EXPECT_EQ(disk.Tag, 0x00010001u);
  EXPECT_EQ(uefi.Tag, 0xFFFF0107u);
}

constexpr UINT16 kNone = bds::kNoBootOptionNumber;

struct NumberCase {
  const char* Name;
  std::vector<UINT16> Numbers;            // in tag order
  std::vector<std::u16string> Variables;  // Boot#### in the store
  std::vector<unsigned> Expected;
};

TEST(Numbers, NewOptionsGetFreeOnes) {
  const NumberCase cases[] = {
      {"none numbered: from 1", {kNone, kNone}, {}, {1, 2}},
      {"behind the largest", {7, kNone, 3, kNone}, {}, {7, 8, 3, 9}},
      {"0 is a number", {0, kNone}, {}, {0, 1}},
      {"an unlisted variable is passed over", {4, kNone, kNone}, {u"Boot0004", u"Boot0005"}, {4, 6, 7}},
      {"0xFFFE taken: the lowest free one", {0xFFFE, kNone, 1, kNone}, {u"Boot0002"}, {0xFFFE, 3, 1, 4}},
      {"0xFFFD taken: first 0xFFFE", {0xFFFD, kNone, kNone}, {}, {0xFFFD, 0xFFFE, 1}},
      {"all anew: an unlisted variable is passed over", {kNone, kNone}, {u"Boot0001"}, {2, 3}},
  };
  for (const NumberCase& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    for (const auto& name : row.Variables) {
      StoreBootVariable(firmware, name);
    }
    UINT32 priority = 256;
    for (const UINT16 number : row.Numbers) {
      AddOption(PciRoot() + End(), false, number, number == kNone ? bds::kUnassigned : priority);
      priority += 256;
    }
    bds::SetDefaultBootOptionTags();
    bds::SetBootOptionPriorities();
    EXPECT_EQ(Numbers(), row.Expected);
  }
}

// What a policy boot finds: the options' own variables, under the numbers of the boot before.
TEST(Numbers, NumberedAnewOptionsTakeTheVariableThatTheyWereLoadedFromAndNoTwin) {
  for (const bool loaded : {true, false}) {
    FakeServer firmware;
    const Blob path = PciRoot() + End();
    firmware.SetVariable(
        u"Boot0001", gEfiGlobalVariableGuid, 7,
        LittleEndian<UINT32>(1) + LittleEndian(static_cast<UINT16>(path.size())) + Utf16(u"name") + path);
    AddOption(path).StoredNumber = loaded ? 1 : 9;
    bds::SetDefaultBootOptionTags();
    bds::SetBootOptionPriorities();
    EXPECT_EQ(Numbers(), (std::vector<unsigned>{loaded ? 1U : 2U}));
  }
}

TEST(Numbers, TheFirmwaresOwnLeftOverVariablesAreTakenAgain) {
  const std::pair<Blob, unsigned> cases[] = {
      {B({0, 0, 0x42, 0x4F}), 5},           // firmware marker
      {B({0, 0, 0x47, 0x4F, 1, 2, 3}), 5},  // group marker
      {B({0, 0, 0x4E, 0x4F}), 6},           // a member's marker makes nothing the firmware's
      {B({0, 0, 0x42}), 6},
      {{}, 6},
  };
  for (const auto& [data, expected] : cases) {
    FakeServer firmware;
    const Blob path = PciRoot() + End();
    firmware.SetVariable(
        u"Boot0005", gEfiGlobalVariableGuid, 7,
        LittleEndian<UINT32>(1) + LittleEndian(static_cast<UINT16>(path.size())) + Utf16(u"x") + path + data);
    AddOption(path, false, 4, 256);
    AddOption(path);
    bds::SetDefaultBootOptionTags();
    bds::SetBootOptionPriorities();
    EXPECT_EQ(Numbers(), (std::vector<unsigned>{4, expected}));
  }
}

TEST(Priorities, NewOptionsFollowTheNumberedOneBeforeThem) {
  FakeServer firmware;
  const auto& before = AddOption(PciRoot() + End(), false, 3, 512);
  const auto& first = AddOption(PciRoot() + End());
  const auto& second = AddOption(PciRoot() + End());
  const auto& disk = AddOption(Bbs(2) + End());
  bds::SetDefaultBootOptionTags();
  bds::SetBootOptionPriorities();
  EXPECT_EQ(before.Priority, 512u);
  EXPECT_EQ(first.Priority, 513u);
  EXPECT_EQ(second.Priority, 514u);
  EXPECT_EQ(disk.Priority, 1u) << "first in tag order, with nothing before it";
  EXPECT_EQ(Numbers(), (std::vector<unsigned>{4, 3, 5, 6}));
}

TEST(Numbers, APolicyOrTheStbuModeNumbersAllAnew) {
  struct Case {
    const char* Name;
    bool Policy;
    bool Stbu;
    std::size_t SetupSize;
    std::vector<unsigned> Expected;
  };
  const Case cases[] = {
      {"neither", false, false, kSetupSize, {9, 8}},
      {"policy", true, false, kSetupSize, {1, 2}},
      {"STBU", false, true, kSetupSize, {1, 2}},
      {"Setup too long to be read", false, true, kSetupSize + 1, {9, 8}},
      {"Setup ends before the switch", false, true, kSetupStbuMode, {9, 8}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    EnableStbu(firmware, row.Stbu, row.SetupSize);
    std::byte policy[400] = {};
    if (row.Policy) {
      firmware.Install(firmware.AddHandle(), ProtocolGuid<FLEXBOOT_ORDER_HEADER>, policy);
    }
    AddOption(Bbs(2) + End(), false, 9, 512);
    AddOption(PciRoot() + End(), false, 8, 256);
    bds::SetDefaultBootOptionTags();
    bds::SetBootOptionPriorities();
    EXPECT_EQ(Numbers(), row.Expected);
  }
}

TEST(Processing, FirmwareOrphansGoWithTheirVariable) {
  FakeServer firmware;
  StoreBootVariable(firmware, u"Boot0001");
  StoreBootVariable(firmware, u"Boot0002");
  StoreBootVariable(firmware, u"Boot0003");
  AddOption(PciRoot() + End(), true, 1);
  AddOption(PciRoot() + End(), false, 2);
  AddOption(Bbs(2) + End(), true, 3).GroupHeader = TRUE;
  bds::PreProcessBootOptions();
  EXPECT_EQ(Numbers(), (std::vector<unsigned>{2, 3}));
  EXPECT_FALSE(firmware.Variable(u"Boot0001"));
  EXPECT_TRUE(firmware.Variable(u"Boot0002"));
  EXPECT_TRUE(firmware.Variable(u"Boot0003"));
  EXPECT_TRUE(firmware.Logged("PreProcessBootOptions:Deleting a FwBootOption type Orphan:name\n"));
  EXPECT_TRUE(firmware.Logged("PreProcessBootOptions:Keeping a non FwBootOption type Orphan:name\n"));
}

TEST(Processing, HeadersWithoutMembersGo) {
  struct Case {
    const char* Name;
    UINT32 HeaderTag;
    UINT32 NextTag;
    bool HasNext;
    bool Stays;
  };
  constexpr Case kCases[] = {
      {"member behind it", 1, 1, true, true},
      {"another group behind it", 1, 2, true, false},
      {"nothing behind it", 1, 1, false, false},
      {"both untagged", 0xFFFFFFFF, 0xFFFFFFFF, true, false},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    StoreBootVariable(firmware, u"Boot0005");
    auto& header = AddOption(Bbs(2) + End(), true, 5, 256);
    header.GroupHeader = TRUE;
    header.Tag = row.HeaderTag;
    if (row.HasNext) {
      AddOption(Bbs(2) + End(), false, 5, 512).Tag = row.NextTag;
    }
    bds::PostProcessBootOptions();
    EXPECT_EQ(bds::BootOptionList.Count, (row.Stays ? 1u : 0u) + (row.HasNext ? 1u : 0u));
    EXPECT_EQ(firmware.Variable(u"Boot0005").has_value(), row.Stays);
  }
}

}  // namespace
