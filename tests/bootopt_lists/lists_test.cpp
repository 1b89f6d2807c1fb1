// Records, lists and the rules derived from a record's fields.
#include "tests/support/boot_lists_fixture.h"

namespace bds {
namespace {

using fake::Data;
using fake::OptionsOf;
using fake::Path;

class BootLists : public fake::BootListsTest {};

Data BbsPath(UINT16 type) {
  return Path().Node(5, 1, {static_cast<UINT8>(type), static_cast<UINT8>(type >> 8), 0, 0, 0}).Bytes();
}
const Data kHardDrivePath = Path().Node(4, 1, Data(38, 0)).Bytes();
const Data kShellNode = {0x5C, 0xB9, 0x23, 0x50, 0x26, 0xDB, 0x9B, 0x42,
                         0xA6, 0x48, 0xBD, 0x47, 0x66, 0x4C, 0x80, 0x12};

TEST_F(BootLists, UnlinksFirstMiddleAndLast) {
  BOOT_OPTION* options[5];
  for (BOOT_OPTION*& option : options) {
    option = &AddOption(u"x");
  }
  for (const int gone : {2, 0, 4}) {
    DeleteBootOption(BootOptionList, options[gone]);
    static_cast<void>(OptionsOf(BootOptionList));
  }
  EXPECT_EQ(OptionsOf(BootOptionList), (std::vector{options[1], options[3]}));
}

TEST_F(BootLists, OnlyModeOneDeletesTheVariable) {
  Fw.Put(u"Boot00AB", {1});
  BOOT_OPTION& option = AddOption(u"x");
  option.BootOptionNumber = 0xAB;
  option.Tag = 0x10001;
  option.Priority = 0x200;
  for (const UINTN mode : {UINTN{0}, UINTN{2}}) {
    DeleteBootOptionAndVariable(BootOptionList, &option, mode);
    EXPECT_EQ(BootOptionList.Count, 1U);
    EXPECT_EQ(TakeLog(), "");
  }
  DeleteBootOptionAndVariable(BootOptionList, &option, 1);
  EXPECT_EQ(BootOptionList.Count, 0U);
  EXPECT_EQ(Fw.Find(u"Boot00AB"), nullptr);
  EXPECT_EQ(TakeLog(),
            "Deleting Boot Option Tag:10001 Prio:200 BootOption#:ab\n"
            "DeleteBootOption:Deleting BootOption(171) Description=x mapped to BBSIndex=65535\n");
}

struct DeviceCase {
  UINT16 Index;
  UINT32 Ibv1;
  bool Created;
};
constexpr DeviceCase kDevices[] = {{0, 0, false}, {24, 0, false}, {24, 1, true}, {25, 0, true}, {255, 0, true}};

TEST_F(BootLists, TheCsmsOwnEntriesBecomeNoDevices) {
  for (const DeviceCase& device : kDevices) {
    BBS_TABLE entry{};
    entry.IBV1 = device.Ibv1;
    entry.IBV2 = 1;
    BOOT_DEVICE* created = CreateBootDevice(BootDeviceList, nullptr, device.Index, &entry);
    EXPECT_EQ(created != nullptr, device.Created) << device.Index;
    EXPECT_EQ(TakeLog(), device.Created ? "CreateBootDevice:Creating bootdevice with BBSIndex(" +
                                              std::to_string(device.Index) + ")\n"
                                        : "Ignoring the device entry \n");
    if (created != nullptr) {
      EXPECT_EQ(created->BbsEntry, &entry);
      EXPECT_EQ(created->BbsIndex, device.Index);
    }
  }
  EXPECT_EQ(BootDeviceList.Count, 3U);
}

TEST_F(BootLists, KindsOfOptionsByTheirFirstNode) {
  struct Case {
    const char* Name;
    Data Path;
    bool Legacy, HardDisk, Shell;
  };
  Data longShell = Path().Node(4, 3, kShellNode).Bytes();
  longShell[2] = 24;  // the node swallows the end node
  const Case cases[] = {
      {"BBS", BbsPath(2), true, false, false},
      {"hard drive", kHardDrivePath, false, true, false},
      {"shell", Path().Node(4, 3, kShellNode).Bytes(), false, false, true},
      {"shell GUID with data", longShell, false, false, false},
      {"shell GUID as hardware node", Path().Node(1, 3, kShellNode).Bytes(), false, false, false},
      {"hard drive behind PCI", Path().Node(1, 1, {0, 1}).Node(4, 1, Data(38, 0)).Bytes(), false, false, false},
      {"empty", Path().Bytes(), false, false, false},
      {"node longer than the path", {5, 1, 9, 0}, false, false, false},
  };
  for (const Case& kind : cases) {
    const BOOT_OPTION& option = AddOption(nullptr, kind.Path);
    EXPECT_EQ(IsLegacyOption(option), kind.Legacy) << kind.Name;
    EXPECT_EQ(IsUefiHardDiskOption(option), kind.HardDisk) << kind.Name;
    EXPECT_EQ(IsBuiltInApplicationOption(option), kind.Shell) << kind.Name;
  }
}

TEST_F(BootLists, WithoutAPathTheBbsEntryMakesAnOptionLegacy) {
  BBS_TABLE entry{};
  BOOT_OPTION& option = AddOption();
  EXPECT_FALSE(IsLegacyOption(option));
  option.BbsEntry = &entry;
  EXPECT_TRUE(IsLegacyOption(option));
  BOOT_OPTION& uefi = AddOption(nullptr, kHardDrivePath);
  uefi.BbsEntry = &entry;
  EXPECT_FALSE(IsLegacyOption(uefi)) << "the path decides when there is one";
}

TEST_F(BootLists, TheDeviceTypeMustLieInTheFirstNode) {
  UINT16 type = 0;
  EXPECT_TRUE(FirstNodeDeviceType(AddOption(nullptr, BbsPath(0x80)), type));
  EXPECT_EQ(type, 0x80);
  EXPECT_TRUE(FirstNodeDeviceType(AddOption(nullptr, Path().Node(5, 1, {3, 0}).Bytes()), type));
  EXPECT_EQ(type, 3);
  EXPECT_FALSE(FirstNodeDeviceType(AddOption(nullptr, Path().Node(5, 1, {3}).Bytes()), type));
  EXPECT_FALSE(FirstNodeDeviceType(AddOption(nullptr, Path().Node(5, 1, {}).Bytes()), type))
      << "the bytes behind a short node are another node's";
  EXPECT_FALSE(FirstNodeDeviceType(AddOption(), type));
}

}  // namespace
}  // namespace bds
