// Boot variables put back from the BMC: once, whole, and never in place of something better.
#include "bmc/restored_marker.h"
#include "bmc/steps.h"
#include "platform/setup_variable.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

class RestoreCopies : public BmcFixture {
 protected:
  RestoreCopies() {
    SetSetup({{kSetupUefiMode, 1}});
    files().Write("BootOrder", Order({2, 0x00BC}));
    files().Write("Boot0002", first);
    files().Write("Boot00BC", second);
  }
  void Restore() { EXPECT_TRUE(Returns(bds::RestoreEfiBootVariablesFromBMC)); }
  std::optional<Bytes> Marker() { return Variable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid); }
  const Bytes first = Image(u"First");
  const Bytes second = Image(u"Second", Bytes(100, 0x42));
};

TEST_F(RestoreCopies, EverythingComesBackOnce) {
  Restore();
  std::uint32_t attributes = 0;
  EXPECT_EQ(Variable(u"BootOrder", gEfiGlobalVariableGuid, &attributes), Order({2, 0x00BC}));
  EXPECT_EQ(attributes, kAttributes7);
  EXPECT_EQ(Global(u"Boot0002"), first);
  EXPECT_EQ(Variable(u"Boot00BC", gEfiGlobalVariableGuid, &attributes), second);
  EXPECT_EQ(attributes, kAttributes7);
  EXPECT_EQ(Marker(), (Bytes{1, 0}));
  EXPECT_TRUE(Logged("\n UEFIBoot: Read BootOrder file, size = 4h \n"));
  NextBoot();
  const std::uint64_t before = bmc().Interface().Exchanges();
  Restore();
  EXPECT_EQ(bmc().Interface().Exchanges(), before);
  EXPECT_TRUE(Logged("EFI BootOptionRestored variable is detected, no need to restore it \n"));
  EXPECT_EQ(PoolBlocks(), 0U);
}

TEST_F(RestoreCopies, AMissingOrderStopsItAndAMissingOptionDoesNot) {
  files().Remove("Boot0002");
  SetGlobal(u"Boot0002", Bytes{1});
  Restore();
  EXPECT_EQ(Global(u"Boot0002"), Bytes{1});
  EXPECT_EQ(Global(u"BootOrder"), Order({2, 0x00BC}));
  EXPECT_EQ(Global(u"Boot00BC"), second);
  EXPECT_TRUE(Marker());
  EXPECT_TRUE(Logged("\n UEFIBoot: fails to ready Boot0002 file, Boot0002 vairable not restored \n"));

  for (const Bytes& order : {Bytes{}, Bytes{1}}) {
    NextBoot();
    SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {});
    SetGlobal(u"BootOrder", Order({5}));
    files().Write("BootOrder", order);
    Restore();
    EXPECT_EQ(Global(u"BootOrder"), Order({5}));
    EXPECT_FALSE(Marker());
    EXPECT_TRUE(Logged("\n UEFIBoot: BtReadBootVariableFile return failed! \n"));
  }
}

TEST_F(RestoreCopies, HalfACopyDoesNotReplaceTheWhole) {
  const Bytes full(second.begin(), second.end());
  SetGlobal(u"Boot00BC", full);
  SetGlobal(u"BootOrder", Order({2, 0x00BC, 3}));
  for (const std::size_t left : {std::size_t{1}, full.size() - 50, full.size() - 1}) {
    NextBoot();
    SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {});
    files().Write("Boot00BC", Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(left)));
    files().Write("BootOrder", Bytes{2, 0, 0xBC});
    Restore();
    EXPECT_EQ(Global(u"Boot00BC"), full) << left;
    EXPECT_EQ(Global(u"BootOrder"), Order({2, 0x00BC, 3}));
  }
}

TEST_F(RestoreCopies, ADamagedImageIsNotRestored) {
  Bytes broken = first;
  broken[broken.size() - 10] = 3;  // a node length that no path has
  files().Write("Boot0002", broken);
  SetGlobal(u"Boot0002", second);
  Restore();
  EXPECT_EQ(Global(u"Boot0002"), second);
  EXPECT_TRUE(Logged("Boot0002 vairable not restored"));
}

TEST_F(RestoreCopies, AnOptionThatWasNotHeardOfIsAskedForAgain) {
  AddFault("no-answer@5");  // a piece of Boot0002
  Restore();
  EXPECT_EQ(Global(u"Boot0002"), first);
  EXPECT_EQ(Global(u"Boot00BC"), second);
  EXPECT_TRUE(Marker());
}

TEST_F(RestoreCopies, ABmcThatFallsSilentIsAskedAtTheNextBootAndKeepsItsCopies) {
  AddFault("no-answer:2@5");
  SetGlobal(u"BootOrder", {});
  Restore();
  EXPECT_FALSE(Marker());
  EXPECT_TRUE(Returns(bds::SaveEfiBootVaiablesToBMC));
  EXPECT_EQ(files().Read("Boot0002"), first);
  NextBoot();
  Restore();
  EXPECT_EQ(Global(u"Boot0002"), first);
  EXPECT_TRUE(Marker());
}

TEST_F(RestoreCopies, ASilentBmcLeavesTheOrderAndItsOwnCopyAlone) {
  AddFault("no-answer:2");
  SetGlobal(u"BootOrder", Order({5}));
  Restore();
  EXPECT_TRUE(Returns(bds::SaveEfiBootVaiablesToBMC));
  EXPECT_EQ(files().Read("BootOrder"), Order({2, 0x00BC}));
  EXPECT_EQ(Global(u"BootOrder"), Order({5}));
}

TEST_F(RestoreCopies, UefiModeOffRestoresNothing) {
  SetSetup({});
  Restore();
  EXPECT_EQ(Log(), "");
  EXPECT_FALSE(Global(u"BootOrder"));
}

}  // namespace
}  // namespace test
