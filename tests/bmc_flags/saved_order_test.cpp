// The order before a boot request: saved ahead of it, put back at the next boot, whatever happens in between.
#include "bmc/saved_boot_order.h"

#include "bmc/matched_option.h"
#include "tests/bmc_flags/option_server.h"

namespace test {
namespace {

constexpr char16_t kOrder[] = u"BootOrderBeforeIpmiBoot";
constexpr char16_t kOption[] = u"IpmiMatchBootOptionData";

class SavedOrder : public OptionServer {
 protected:
  SavedOrder() { PublishMode(0, 0); }
  static Bytes Record(std::uint8_t number, const Bytes& image) {
    Bytes record{number, 0};
    record.insert(record.end(), image.begin(), image.end());
    return record;
  }
};

TEST_F(SavedOrder, NumbersAreSavedInPriorityOrderEachOnce) {
  Add(u"c", Disk()).Priority = 30;
  Add(u"a", Disk()).Priority = 10;
  Add(u"a member", Disk()).Priority = 20;
  bds::BootOptionList.Last->BootOptionNumber = 2;
  Add(u"new", Disk()).BootOptionNumber = 0xFFFF;
  Add(u"high", Disk()).BootOptionNumber = 0xFFFE;
  EXPECT_TRUE(bds::SaveCurrentBootorder());
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
  EXPECT_TRUE(bds::SaveCurrentBootorder());
  NextBoot();
  Bytes changed = before;
  changed[0] ^= 1;  // the attributes
  SetGlobal(u"Boot0002", changed);
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

// Somebody else's option, or none any more, has the number.
TEST_F(SavedOrder, AnOptionIsPutBackOverItselfOnly) {
  for (const Bytes& present : {Image(u"another's"), Image(u"disk", {1}), Bytes{}}) {
    SetGlobal(u"Boot0002", present);
    SetVariable(kOption, kIpmiGuid, kAttributes3, Record(2, Image(u"disk")));
    bds::RestoreBootorder();
    EXPECT_EQ(Global(u"Boot0002").value_or(Bytes{}), present);
    EXPECT_FALSE(Variable(kOption, kIpmiGuid));
  }
}

// Boot0005 to Boot0007 exist, and were not there when the order was saved.
TEST_F(SavedOrder, WhatCameSinceKeepsItsPlace) {
  const struct {
    std::initializer_list<std::uint16_t> current, restored;
  } cases[] = {
      {{}, {1, 2, 3}},
      {{3, 1, 2}, {1, 2, 3}},
      {{3}, {1, 2, 3}},                            // what was dropped comes back
      {{5, 3, 1, 2}, {5, 1, 2, 3}},                // installed in front
      {{3, 1, 2, 5}, {1, 2, 3, 5}},                // or behind
      {{7, 5, 3, 6, 1, 2}, {7, 5, 1, 2, 3, 6}},    // or between, which is not in front
      {{5, 5, 3, 5, 6, 6}, {5, 1, 2, 3, 6}},       // each once
      {{9, 5, 3, 8, 6, 0xFFFF}, {5, 1, 2, 3, 6}},  // a number without an option is none
      {{5}, {5, 1, 2, 3}},
  };
  for (const char16_t* name : {u"Boot0005", u"Boot0006", u"Boot0007"}) {
    SetGlobal(name, Image(u"new"));
  }
  for (const auto& c : cases) {
    SetGlobal(u"BootOrder", Order(c.current));
    SetVariable(kOrder, kIpmiGuid, kAttributes3, Order({1, 2, 3}));
    bds::RestoreBootorder();
    EXPECT_EQ(Global(u"BootOrder"), Order(c.restored));
    EXPECT_FALSE(Variable(kOrder, kIpmiGuid));
  }
}

TEST_F(SavedOrder, WhatCouldNotBeLoadedIsSavedAtItsPlace) {
  Add(u"a", Disk());
  Add(u"b", Disk());
  bds::RecordUnloadedOption(0x0010, 512);
  EXPECT_TRUE(bds::SaveCurrentBootorder());
  EXPECT_EQ(Variable(kOrder, kIpmiGuid), Order({1, 0x0010, 2}));
  bds::ForgetUnloadedOptions();
}

TEST_F(SavedOrder, ARecordThatCannotBePutBackIsKept) {
  SetVariable(u"BootOrder", gEfiGlobalVariableGuid, kAttributes3, Order({2}));  // other attributes refuse the write
  SetVariable(u"Boot0002", gEfiGlobalVariableGuid, kAttributes3, Image(u"disk"));
  SetVariable(kOrder, kIpmiGuid, kAttributes3, Order({1}));
  SetVariable(kOption, kIpmiGuid, kAttributes3, Record(2, Image(u"disk")));
  bds::RestoreBootorder();
  EXPECT_TRUE(Variable(kOrder, kIpmiGuid));
  EXPECT_TRUE(Variable(kOption, kIpmiGuid));
}

}  // namespace
}  // namespace test
