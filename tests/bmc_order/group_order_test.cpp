// The groups as the BMC wants them, and what strict and loose mode make of them.
#include <numeric>

#include "bmc/bot_format.h"
#include "bmc/group_priorities.h"
#include "bmc/steps.h"
#include "tests/support/bmc_fixture.h"
#include "tests/support/boot_lists_fixture.h"

namespace test {
namespace {

using Groups = std::vector<UINT32>;

// A table with these SYS codes and these name records behind its end entry, with a right sum.
Bytes Table(const Bytes& codes, const Bytes& names = {}, std::uint8_t flags = bds::kBotChanged) {
  Bytes table{'_', 'B', 'O', '_', 0, 0, 0x95, 0, 0, 0, flags, 0, static_cast<std::uint8_t>(codes.size())};
  table.insert(table.end(), codes.begin(), codes.end());
  table.insert(table.end(), {0xFF, 0x00});
  table.insert(table.end(), names.begin(), names.end());
  table[7] = static_cast<std::uint8_t>(table.size());
  table[4] = static_cast<std::uint8_t>(-std::accumulate(table.begin(), table.end(), 0));
  return table;
}

// A UEFI name record with an empty path, behind a legacy one.
Bytes NameRecords(const std::u16string& description) {
  Bytes record{0x08, 1, 0, 'H', 'D', 0, 0x10, 2, 0, 0, 0};
  for (const char16_t character : description + u'\0') {
    record.push_back(static_cast<std::uint8_t>(character & 0xFF));
    record.push_back(static_cast<std::uint8_t>(character >> 8));
  }
  return record;
}

class GroupOrder : public BmcFixture {
 protected:
  ~GroupOrder() override {
    while (bds::BootOptionList.First != nullptr) {
      bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
    }
  }
  void SetChangedTable(const Bytes& table) {
    SetVariable(bds::kBotChangedName, bds::kBotVariablesGuid, kAttributes3, table);
    bds::gPolicyEngine.BotUpdatedOldWay = 1;
  }
  // A legacy option of that BBS type.
  void AddOption(BBS_TABLE& entry, UINT16 type) {
    bds::BOOT_OPTION* option = bds::CreateBootOption(bds::BootOptionList);
    const auto path = sim::DevicePath().Bbs(type, 0, "");
    option->FilePathList.reset(
        static_cast<EFI_DEVICE_PATH_PROTOCOL*>(bds::AllocateCopyPool(path.Size(), path.Bytes().data())));
    option->FilePathListLength = path.Size();
    option->BootOptionNumber = option->StoredNumber = static_cast<UINT16>(bds::BootOptionList.Count);
    entry.DeviceType = type;
    option->BbsEntry = &entry;
  }
  static Groups Order() {
    Groups order;
    for (const UINT32 id : bds::gBootOptions.GroupOrder.Ids) {
      if (id == bds::kNoGroup) break;
      order.push_back(id);
    }
    return order;
  }
  static Groups TypesLeft() {
    Groups types;
    for (const auto* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      types.push_back(option->BbsEntry->DeviceType);
    }
    return types;
  }
};

constexpr std::uint8_t kStrict = 0;
constexpr std::uint8_t kLoose = 1;

TEST_F(GroupOrder, ChangedTables) {
  const struct {
    const char* name;
    std::uint8_t mode;
    bool configMode;
    Bytes table;
    Groups order;
    Groups typesLeft;
  } cases[] = {
      {"strict, a first UEFI option that is not the shell",
       kStrict,
       false,
       Table({0x08, 0x10}, NameRecords(u"UEFI: Disk")),
       {1, 7, 8},
       {2}},
      {"strict, the shell first",
       kStrict,
       false,
       Table({0x08, 0x10}, NameRecords(u"UEFI: Built-in EFI Shell")),
       {1, 8},
       {2}},
      {"strict, a name that goes on behind the shell's",
       kStrict,
       false,
       Table({0x10}, NameRecords(u"UEFI: Built-in EFI Shells")),
       {7, 8},
       {}},
      {"strict, no UEFI name at all", kStrict, false, Table({0x08, 0x10}), {1, 8}, {2}},
      {"strict in config mode", kStrict, true, Table({0x08}), {1, 8, 7}, {2}},
      {"loose", kLoose, false, Table({0x06}), {5, 1, 2, 0, 8, 7}, {1, 2, 3, 6}},
      {"loose, all of it", kLoose, false, Table({0x10, 0x03, 0x08}), {8, 2, 1, 0, 5, 7}, {1, 2, 3, 6}},
      {"a code without a group, in the first place",
       kLoose,
       false,
       Table({0x09, 0x03}),
       {2, 1, 0, 5, 8, 7},
       {1, 2, 3, 6}},
      {"a group that the order does not have takes a place",
       kLoose,
       false,
       Table({0x05}),
       {4, 2, 0, 5, 8, 7},
       {1, 2, 3, 6}},
      {"more codes than places: the eighth is not looked at",
       kLoose,
       false,
       Table({0x09, 0x09, 0x09, 0x09, 0x09, 0x09, 0x06, 0x03}),
       {5, 1, 2, 0, 8, 7},
       {1, 2, 3, 6}},
      {"codes past the table's end",
       kLoose,
       false,
       Bytes{0x5F, 0x42, 0x4F, 0x5F, 0x16, 0x00, 0x5F, 0x13, 0x00, 0x00, 0x00, 0x00, 0x08, 0x03, 0x01, 0x06, 0x08, 0x10,
             0xFF},
       {2, 0, 5, 1, 8, 7},
       {1, 2, 3, 6}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    NextBoot();
    SetSetup({{kSetupStrictGroupOrder, row.mode}, {kSetupUefiMode, 1}});
    SetChangedTable(row.table);
    bds::gBmc.ZephanConfigMode = row.configMode;
    BBS_TABLE entries[4]{};
    const UINT16 types[] = {1, 2, 3, 6};
    for (int at = 0; at < 4; ++at) {
      AddOption(entries[at], types[at]);
    }
    bds::SetGroupBootOrder();
    EXPECT_EQ(Order(), row.order);
    EXPECT_EQ(TypesLeft(), row.typesLeft);
    while (bds::BootOptionList.First != nullptr) {
      EXPECT_EQ(bds::BootOptionList.First->BootOptionNumber, bds::kNoBootOptionNumber);
      bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
    }
  }
}

TEST_F(GroupOrder, ABadTableLeavesAllAsItWas) {
  Bytes wrongSum = Table({0x06});
  ++wrongSum[4];
  const Bytes noSys{'_', 'B', 'O', '_', 0x93, 0, 0x95, 13, 0, 0, 0, 0xFF, 0x00};
  for (const Bytes& table : {wrongSum, noSys, Bytes{1, 0xFF}, Bytes(64), Table({}), Table({0x09})}) {
    NextBoot();
    SetSetup({{kSetupStrictGroupOrder, kStrict}});
    SetChangedTable(table);
    BBS_TABLE entry{};
    AddOption(entry, 2);
    bds::SetGroupBootOrder();
    EXPECT_EQ(Order(), (Groups{1, 2, 0, 5, 8, 7}));
    ASSERT_NE(bds::BootOptionList.First, nullptr);
    EXPECT_EQ(bds::BootOptionList.First->BootOptionNumber, 1);
    bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
  }
}

// In strict mode the disk's group would go with what is missing from such a list.
TEST_F(GroupOrder, AnOrderThatIsNotReadWholeDeletesNothing) {
  const struct {
    const char* name;
    const char16_t* refused;
    EFI_STATUS status;
    Bytes order;
    Groups groups;
  } cases[] = {
      {"all is read", u"", EFI_DEVICE_ERROR, test::Order({1, 2}), {7, 1, 8}},
      {"an option without memory", u"Boot0002", EFI_OUT_OF_RESOURCES, test::Order({1, 2}), {1, 2, 0, 5, 8, 7}},
      {"an option of a broken store", u"Boot0002", EFI_DEVICE_ERROR, test::Order({1, 2}), {1, 2, 0, 5, 8, 7}},
      {"an option that is not there", u"Boot0002", EFI_NOT_FOUND, test::Order({1, 2}), {7, 8}},
      {"the order itself", u"BootOrder", EFI_OUT_OF_RESOURCES, test::Order({1, 2}), {1, 2, 0, 5, 8, 7}},
      {"no option behind the order", u"", EFI_DEVICE_ERROR, test::Order({8, 9}), {1, 2, 0, 5, 8, 7}},
  };
  Set(u"Boot0001", LoadOption(1, u"name", sim::DevicePath().File(u"a")));
  Set(u"Boot0002", LoadOption(1, u"name", sim::DevicePath().Bbs(2, 0, "")));
  // An older table, which an unreadable order must not bring back.
  SetVariable(bds::kBotCopyName, bds::kBotVariablesGuid, kAttributes3, Table({0x06}));
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    NextBoot();
    SetSetup({{kSetupStrictGroupOrder, kStrict}});
    SetGlobal(u"BootOrder", row.order);
    BBS_TABLE entry{};
    AddOption(entry, 2);
    RefuseRead = [&row](const std::u16string& name) { return name == row.refused ? row.status : EFI_SUCCESS; };
    bds::SetGroupBootOrder();
    RefuseRead = nullptr;
    EXPECT_EQ(Order(), row.groups);
    EXPECT_EQ(TypesLeft(), row.status == EFI_NOT_FOUND ? Groups{} : Groups{2});
    if (bds::BootOptionList.First != nullptr) {
      bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
    }
  }
}

// Without a change the list is that of BootOrder.
TEST_F(GroupOrder, ListOfTheOrderInForce) {
  const auto put = [this](const char16_t* name, const sim::DevicePath& path) {
    Set(name, LoadOption(1, u"name", path));
  };
  put(u"Boot0001", sim::DevicePath().Bbs(2, 0, ""));
  put(u"Boot0002", sim::DevicePath().File(u"a"));
  put(u"Boot0003", sim::DevicePath().File(u"b"));
  put(u"Boot0004", sim::DevicePath().Vendor(4, bds::kBuiltInApplicationGuid));
  put(u"Boot0005", sim::DevicePath().Bbs(4, 0, ""));
  put(u"Boot0006", sim::DevicePath().Bbs(0x80, 0, ""));
  constexpr UINT32 kNone = bds::kNoGroup;
  const struct {
    Bytes order;
    Groups ids;
  } cases[] = {
      {test::Order({2, 3, 1}), {7, 1, kNone, kNone, kNone, kNone, kNone}},
      {test::Order({1, 3, 2}), {1, 7, kNone, kNone, kNone, kNone, kNone}},
      {test::Order({4, 5, 9, 6, 1, 1}), {8, 0xFF, 6, 1, 1, kNone, kNone}},
      {test::Order({1, 1, 1, 1, 1, 1, 1, 1, 2}), {1, 1, 1, 1, 1, 1, 1}},
  };
  for (const auto& row : cases) {
    SetGlobal(u"BootOrder", row.order);
    bds::BMC_PRIORITY_LIST list;
    EXPECT_EQ(bds::GetBootPrioritiesFromBmc(list), EFI_SUCCESS);
    EXPECT_EQ(Groups(std::begin(list.Ids), std::end(list.Ids)), row.ids);
  }
  EXPECT_TRUE(Logged("Could not read Boot0009"));
}

}  // namespace
}  // namespace test
