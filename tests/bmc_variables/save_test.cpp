// Copies of the boot variables on the BMC, the safe reboot after the first, and a BMC that cannot be heard.
#include "bmc/restored_marker.h"
#include "bmc/steps.h"
#include "platform/setup_variable.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

class SaveCopies : public BmcFixture {
 protected:
  SaveCopies() {
    SetSetup({{kSetupUefiMode, 1}});
    SetGlobal(u"BootOrder", Order({1, 0x000A, 7}));
    SetGlobal(u"Boot0001", first);
    SetGlobal(u"Boot000A", second);
  }
  bool Save() { return Returns(bds::SaveEfiBootVaiablesToBMC); }
  const Bytes first = Image(u"First");
  const Bytes second = Image(u"Second", Bytes(100, 0x42));
};

TEST_F(SaveCopies, ALaterSaveFollowsTheVariablesAndLeavesStaleFiles) {
  files().Write("BootOrder", {9, 0});
  files().Write("Boot0009", {1});
  files().Write("Boot0001", Bytes(500, 1));
  const sim::Ticks start = clock().Now();
  EXPECT_TRUE(Save());
  EXPECT_EQ(files().Read("BootOrder"), Order({1, 0x000A, 7}));
  EXPECT_EQ(files().Read("Boot0001"), first);
  EXPECT_EQ(files().Read("Boot0009"), Bytes{1});
  // One wait of 200 ms after each of four closes.
  EXPECT_GE(clock().Now() - start, 800 * sim::kMillisecond);
  EXPECT_LE(clock().Now() - start, 900 * sim::kMillisecond);
}

TEST_F(SaveCopies, OptionsWithoutAnOrderOnTheBmcAreLeftAlone) {
  for (const char* present : {"Boot0001", "Boot0002", "Boot0003"}) {
    SCOPED_TRACE(present);
    NextBoot();
    for (const std::string& name : files().Names()) {
      files().Remove(name);
    }
    files().Write(present, {1});
    files().Write("BootOrder", {});  // as good as none
    EXPECT_TRUE(Save());
    EXPECT_EQ(files().Read("BootOrder"), Bytes{});
    EXPECT_TRUE(Logged("INVALID CONDITION DETECTED. BootOrder var is absent on BMC - but Bootxxxx is present\n"));
    SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {1, 0});
    EXPECT_TRUE(Save());
    EXPECT_EQ(files().Read("BootOrder"), Order({1, 0x000A, 7})) << "the server's own save was cut off";
    SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {});
  }
}

// A BMC that loses what it was given, start after start.
TEST_F(SaveCopies, TheSafeRebootIsNotRepeatedUntilTheCopiesWereSeen) {
  for (const bool resets : {true, false, false}) {
    EXPECT_EQ(Save(), !resets);
    EXPECT_EQ(files().Names().size(), 3U);
    NextBoot();
    for (const std::string& name : files().Names()) {
      files().Remove(name);
    }
  }
  Save();
  EXPECT_TRUE(Save()) << "the copies are there";
  for (const std::string& name : files().Names()) {
    files().Remove(name);
  }
  EXPECT_FALSE(Save());
}

TEST_F(SaveCopies, AnOrderThatCouldNotBeFinishedIsRepairedByTheNextBoot) {
  for (const char* fault : {"refuse-write:2", "no-answer:always@5", "refuse-open:2@4"}) {
    SCOPED_TRACE(fault);
    files().Write("BootOrder", Order({1}));
    files().Write("Boot0001", first);
    NextBoot();
    AddFault(fault);
    const std::uint64_t writes = NonVolatileWrites();
    EXPECT_TRUE(Save());
    files().Write("BootOrder", {});
    NextBoot();
    EXPECT_TRUE(Save());
    EXPECT_EQ(files().Read("BootOrder"), Order({1, 0x000A, 7}));
    EXPECT_EQ(NonVolatileWrites() - writes, 2U) << "a note, and its removal";
  }
}

TEST_F(SaveCopies, SilenceDuringTheExaminationIsNotAnAbsence) {
  files().Write("BootOrder", {9, 0});
  files().Write("Boot0009", {1});
  AddFault("no-answer:always");
  EXPECT_TRUE(Save());
  EXPECT_EQ(files().Read("BootOrder"), (Bytes{9, 0}));
}

}  // namespace
}  // namespace test
