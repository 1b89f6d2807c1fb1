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

// What a save leaves that lost its power ends with a whole piece; a shorter copy of another size is what it is.
TEST_F(RestoreCopies, PiecesOfACopyDoNotReplaceTheWhole) {
  const struct {
    std::ptrdiff_t left;
    bool torn;
  } cases[] = {{59, true}, {118, true}, {117, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.left);
    NextBoot();
    SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {});
    SetGlobal(u"Boot00BC", second);
    SetGlobal(u"BootOrder", Order({2, 0x00BC, 3}));
    const Bytes left(second.begin(), second.begin() + c.left);
    files().Write("Boot00BC", left);
    Restore();
    EXPECT_EQ(Global(u"Boot00BC"), c.torn ? second : left);
    EXPECT_EQ(Global(u"BootOrder"), Order({2, 0x00BC}));
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

TEST_F(RestoreCopies, ABmcThatFallsSilentIsAskedAtTheNextBootAndKeepsItsCopies) {
  AddFault("no-answer:3@5");
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

TEST_F(RestoreCopies, AnOptionThatIsNeverHeardOfIsSkippedForGood) {
  AddFault("h2b-stuck:3@5");  // a piece, the close, and the second open
  SetGlobal(u"Boot0002", second);
  Restore();
  EXPECT_EQ(Global(u"Boot0002"), second);
  EXPECT_TRUE(Logged("\n UEFIBoot: fails to ready Boot0002 file, Boot0002 vairable not restored \n"));
  EXPECT_TRUE(Marker()) << "or every boot would undo what the user changes";
}

// A variable with other attributes refuses the write.
TEST_F(RestoreCopies, ARefusedOrderStopsItAndARefusedOptionDoesNot) {
  SetVariable(u"Boot0002", gEfiGlobalVariableGuid, kAttributes3, {1});
  SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes7, {});
  Restore();
  EXPECT_EQ(Global(u"Boot00BC"), second);
  EXPECT_TRUE(Logged("\n UEFIBoot: set [ BootStr ] variable failed! Status: 0x8000000000000002\n"));
  EXPECT_FALSE(Marker()) << "the next boot tries once more";
  NextBoot();
  Restore();
  std::uint32_t attributes = 0;
  EXPECT_TRUE(Variable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, &attributes));
  EXPECT_EQ(attributes, kAttributes3);

  NextBoot();
  SetVariable(bds::kBootOptionRestoredName, bds::kBootOptionRestoredGuid, kAttributes3, {});
  SetGlobal(u"BootOrder", {});
  SetVariable(u"BootOrder", gEfiGlobalVariableGuid, kAttributes3, Order({5}));
  SetGlobal(u"Boot00BC", {});
  Restore();
  EXPECT_FALSE(Global(u"Boot00BC"));
  EXPECT_FALSE(Marker());
  EXPECT_TRUE(
      Logged("\n UEFIBoot: set [ BootOrder ] variable failed!  Status: 0x8000000000000002 "
             "(EFI_INVALID_PARAMETER)\n"));
}

}  // namespace
}  // namespace test
