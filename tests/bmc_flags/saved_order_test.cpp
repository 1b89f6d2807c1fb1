// The order before a boot request: saved ahead of it, put back at the next boot, whatever happens in between.
#include "bmc/saved_boot_order.h"

#include "tests/bmc_flags/option_server.h"

namespace test {
namespace {

constexpr char16_t kOrder[] = u"BootOrderBeforeIpmiBoot";
constexpr char16_t kOption[] = u"IpmiMatchBootOptionData";

class SavedOrder : public OptionServer {
 protected:
  SavedOrder() { PublishMode(0, 0); }
};

TEST_F(SavedOrder, NumbersAreSavedInPriorityOrderEachOnce) {
  Add(u"c", Disk()).Priority = 30;
  Add(u"a", Disk()).Priority = 10;
  Add(u"a member", Disk()).Priority = 20;
  bds::BootOptionList.Last->BootOptionNumber = 2;
  Add(u"new", Disk()).BootOptionNumber = 0xFFFF;
  Add(u"high", Disk()).BootOptionNumber = 0xFFFE;
  bds::SaveCurrentBootorder();
  EXPECT_EQ(Variable(kOrder, kIpmiGuid), Order({2, 1, 0xFFFE}));
  std::uint32_t attributes = 0;
  ASSERT_TRUE(Variable(kOrder, kIpmiGuid, &attributes));
  EXPECT_EQ(attributes, kAttributes3);
}

TEST_F(SavedOrder, ALegacyRequestSavesItsOptionAndBothComeBack) {
  AddLegacy(u"disk", 2);
  AddLegacy(u"nic", 6);
  const Bytes before = Image(u"before");
  SetGlobal(u"Boot0002", before);
  bds::SaveMatchedBootOption(*bds::BootOptionList.Last);
  bds::SaveCurrentBootorder();
  NextBoot();
  SetGlobal(u"Boot0002", Image(u"changed"));
  SetGlobal(u"BootOrder", Order({2, 1}));
  bds::RestoreBootorder();
  EXPECT_EQ(Global(u"BootOrder"), Order({1, 2}));
  EXPECT_EQ(Global(u"Boot0002"), before);
  EXPECT_FALSE(Variable(kOrder, kIpmiGuid));
  EXPECT_FALSE(Variable(kOption, kIpmiGuid));
  const std::uint64_t writes = NonVolatileWrites();
  bds::RestoreBootorder();
  EXPECT_EQ(NonVolatileWrites(), writes);
}

TEST_F(SavedOrder, AManagedServerNeitherSavesNorRestores) {
  PublishMode(1, 0);
  AddLegacy(u"disk", 2);
  SetGlobal(u"Boot0001", Image(u"disk"));
  bds::SaveMatchedBootOption(*bds::BootOptionList.First);
  bds::SaveCurrentBootorder();
  EXPECT_FALSE(Variable(kOrder, kIpmiGuid));
  EXPECT_TRUE(Variable(kOption, kIpmiGuid)) << "a legacy request's option is kept all the same";
  SetVariable(kOrder, kIpmiGuid, kAttributes3, Order({1}));
  bds::RestoreBootorder();
  EXPECT_TRUE(Variable(kOrder, kIpmiGuid));
  EXPECT_TRUE(Variable(kOption, kIpmiGuid));
  EXPECT_TRUE(Logged("SaveCurrentBootorder: System in Zephan mode\n"));
  EXPECT_TRUE(Logged("RestoreBootOrder: System in Zephan mode\n"));
}

TEST_F(SavedOrder, DamagedRecordsAreDroppedAndChangeNothing) {
  SetGlobal(u"Boot0002", Image(u"kept"));
  SetGlobal(u"BootOrder", Order({2}));
  for (const Bytes& record : {Bytes{2}, Bytes{2, 0}, Bytes{2, 0, 9}}) {
    SetVariable(kOption, kIpmiGuid, kAttributes3, record);
    SetVariable(kOrder, kIpmiGuid, kAttributes3, Bytes{1});
    bds::RestoreBootorder();
    EXPECT_EQ(Global(u"Boot0002"), Image(u"kept"));
    EXPECT_EQ(Global(u"BootOrder"), Order({2}));
    EXPECT_FALSE(Variable(kOption, kIpmiGuid));
    EXPECT_FALSE(Variable(kOrder, kIpmiGuid));
  }
}

TEST_F(SavedOrder, ARecordThatCannotBePutBackIsKept) {
  SetVariable(u"BootOrder", gEfiGlobalVariableGuid, kAttributes3, Order({2}));  // other attributes refuse the write
  SetVariable(u"Boot0002", gEfiGlobalVariableGuid, kAttributes3, {1});
  SetVariable(kOrder, kIpmiGuid, kAttributes3, Order({1}));
  Bytes record{2, 0};
  const Bytes image = Image(u"disk");
  record.insert(record.end(), image.begin(), image.end());
  SetVariable(kOption, kIpmiGuid, kAttributes3, record);
  bds::RestoreBootorder();
  EXPECT_TRUE(Variable(kOrder, kIpmiGuid));
  EXPECT_TRUE(Variable(kOption, kIpmiGuid));
}

TEST_F(SavedOrder, AnOptionWithoutAVariableIsNotSaved) {
  Add(u"unsaved", Disk());
  bds::SaveMatchedBootOption(*bds::BootOptionList.First);
  Add(u"unnumbered", Disk()).BootOptionNumber = 0xFFFF;
  bds::SaveMatchedBootOption(*bds::BootOptionList.Last);
  EXPECT_FALSE(Variable(kOption, kIpmiGuid));
}

TEST_F(SavedOrder, AnEmptyListSavesNothing) {
  bds::SaveCurrentBootorder();
  EXPECT_FALSE(Variable(kOrder, kIpmiGuid));
}

}  // namespace
}  // namespace test
