// Open, read, write, close and rename: what is sent, what is answered, and the lock around it.
#include <numeric>

#include "bmc/bt_file.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

using bds::BT_FILE_CONTEXT;

class FileOperations : public BmcFixture {
 protected:
  static Bytes Pattern(std::size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
  }
  const std::vector<sim::BtInterface::Exchange>& Trace() { return bmc().Interface().Trace(); }
};

TEST_F(FileOperations, AFileIsWrittenInFullPiecesAndARest) {
  const struct {
    std::uint32_t size;
    std::vector<std::uint8_t> lengths;  // L of each piece
  } cases[] = {{0, {}}, {1, {5}}, {58, {62}}, {59, {63}}, {60, {63, 5}}, {118, {63, 63}}, {119, {63, 63, 5}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    BT_FILE_CONTEXT context;
    ASSERT_EQ(bds::BtOpenFile(context, "f", bds::BT_CREATE_FILE), bds::BT_DONE);
    const std::size_t before = Trace().size();
    const Bytes bytes = Pattern(c.size);
    EXPECT_EQ(bds::BtWriteFile(context, bytes.data(), c.size), bds::BT_DONE);
    EXPECT_EQ(context.IsOpen, 1);
    std::vector<std::uint8_t> lengths;
    clock().Advance(sim::kMillisecond);
    for (std::size_t i = before; i < Trace().size(); ++i) {
      lengths.push_back(Trace()[i].request[0]);
      EXPECT_EQ(Trace()[i].request[1], 8);
    }
    EXPECT_EQ(lengths, c.lengths);
    EXPECT_EQ(bds::BtCloseFile(context), 0);
    EXPECT_EQ(files().Read("f"), bytes);
  }
  EXPECT_EQ(counters().ComplaintCount(), 0U);
}

TEST_F(FileOperations, EachRequestHasItsBytes) {
  files().Write("a", {7});
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "a", bds::BT_OPEN_FILE), bds::BT_DONE);
  bds::BtReadFilePiece(context);
  EXPECT_EQ(bds::BtCloseFile(context), 0);
  ASSERT_EQ(bds::BtRenameFile(context, "a", "bc"), bds::BT_DONE);
  ASSERT_EQ(bds::BtOpenFile(context, "bc", bds::BT_CREATE_FILE), bds::BT_DONE);
  EXPECT_EQ(bds::BtWriteFile(context, "x", 1), bds::BT_DONE);
  EXPECT_EQ(bds::BtCloseVariableFile(context), 0);
  const sim::Frame expected[] = {
      {3, 12, 'a', 0x90},     {4, 7, 1, 0, 0xF4},      {4, 9, 1, 0, 0xF2},  {7, 16, 1, 2, 'a', 'b', 'c', 0xC0},
      {4, 6, 'b', 'c', 0x31}, {5, 8, 2, 0, 'x', 0x79}, {4, 18, 2, 0, 0xE8},
  };
  ASSERT_EQ(Trace().size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(Trace()[i].request, expected[i]) << i;
  }
}

TEST_F(FileOperations, WritingWithoutAnOpenFileSendsNothing) {
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "missing", bds::BT_OPEN_FILE), bds::BT_FAILED);
  const std::uint64_t before = bmc().Interface().Exchanges();
  EXPECT_EQ(bds::BtWriteFile(context, "x", 1), bds::BT_NOT_OPEN);
  EXPECT_EQ(bmc().Interface().Exchanges(), before);
  EXPECT_FALSE(bmc().Interface().LockTaken());
}

TEST_F(FileOperations, PiecesBehindAFailedOneAreSentAndTheFailureShows) {
  AddFault("refuse-write");
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "f", bds::BT_CREATE_FILE), bds::BT_DONE);
  const Bytes bytes = Pattern(130);
  EXPECT_EQ(bds::BtWriteFile(context, bytes.data(), 130), bds::BT_DONE);
  EXPECT_EQ(context.IsOpen, 0);
  EXPECT_EQ(bmc().Interface().Exchanges(), 4U);
  EXPECT_EQ(files().Read("f"), Bytes(bytes.begin() + 59, bytes.end()));
}

TEST_F(FileOperations, APieceSentAgainAfterADamagedAnswerIsWrittenOnce) {
  AddFault("bad-checksum:2@2");
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "f", bds::BT_CREATE_FILE), bds::BT_DONE);
  const Bytes bytes = Pattern(130);
  EXPECT_EQ(bds::BtWriteFile(context, bytes.data(), 130), bds::BT_DONE);
  EXPECT_EQ(context.IsOpen, 1);
  EXPECT_EQ(context.RetryCount, 2U);
  EXPECT_EQ(files().Read("f"), bytes);
}

TEST_F(FileOperations, AHeldLockStopsEverythingButTheCloses) {
  files().Write("f", {1});
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "f", bds::BT_OPEN_FILE), bds::BT_DONE);
  AddFault("lock-held:always");
  context.DataOffset = 61;
  context.ResponseLength = 61;
  const std::uint64_t before = bmc().Interface().Exchanges();
  EXPECT_EQ(bds::BtOpenFile(context, "f", bds::BT_OPEN_FILE), bds::BT_LOCKED);
  bds::BtReadFilePiece(context);
  EXPECT_EQ(bds::BtWriteFile(context, "x", 1), bds::BT_LOCKED);
  EXPECT_EQ(bds::BtRenameFile(context, "f", "g"), bds::BT_LOCKED);
  EXPECT_EQ(bmc().Interface().Exchanges(), before);
  EXPECT_EQ(context.DataOffset, 61);
  EXPECT_EQ(context.ResponseLength, 61);
  EXPECT_EQ(context.IsOpen, 1);
  EXPECT_EQ(bds::BtCloseFile(context), 0);
}

TEST_F(FileOperations, AFailedPieceLeavesTheLastOneInPlace) {
  files().Write("f", Pattern(70));
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "f", bds::BT_OPEN_FILE), bds::BT_DONE);
  bds::BtReadFilePiece(context);
  ASSERT_EQ(context.ResponseLength, 61);
  AddFault("no-answer");
  context.DataOffset = 61;
  bds::BtReadFilePiece(context);
  EXPECT_EQ(context.ResponseLength, 61);
  EXPECT_EQ(context.DataOffset, 61);
  EXPECT_EQ(context.IsOpen, 0);
}

TEST_F(FileOperations, ACloseChangesIsOpenOnlyWhenItFails) {
  BT_FILE_CONTEXT context;
  ASSERT_EQ(bds::BtOpenFile(context, "f", bds::BT_CREATE_FILE), bds::BT_DONE);
  EXPECT_EQ(bds::BtCloseFile(context), 0);
  EXPECT_EQ(context.IsOpen, 1);
  EXPECT_EQ(bds::BtCloseVariableFile(context), 1);  // the handle is gone
  EXPECT_EQ(context.IsOpen, 0);
}

TEST_F(FileOperations, ARefusedRenameTellsWhetherTheContextEverTimedOut) {
  BT_FILE_CONTEXT context;
  EXPECT_EQ(bds::BtRenameFile(context, "missing", "x"), bds::BT_RENAME_REFUSED);
  AddFault("wrong-echo");
  EXPECT_EQ(bds::BtRenameFile(context, "missing", "x"), bds::BT_RENAME_REFUSED);
  EXPECT_EQ(bds::BtRenameFile(context, "missing", "x"), bds::BT_RENAME_REFUSED);
  AddFault("no-answer");
  EXPECT_EQ(bds::BtRenameFile(context, "missing", "x"), bds::BT_FAILED);
  EXPECT_EQ(bds::BtRenameFile(context, "missing", "x"), bds::BT_FAILED);
}

TEST_F(FileOperations, NamesThatNoFrameHoldsAreNotSent) {
  BT_FILE_CONTEXT context;
  const std::string sixty(60, 'n');
  EXPECT_EQ(bds::BtOpenFile(context, (sixty + "n").c_str(), bds::BT_OPEN_FILE), bds::BT_FAILED);
  EXPECT_EQ(bds::BtRenameFile(context, sixty.c_str(), "x"), bds::BT_RENAME_REFUSED);
  EXPECT_EQ(bmc().Interface().Exchanges(), 0U);
  EXPECT_EQ(bds::BtOpenFile(context, sixty.c_str(), bds::BT_CREATE_FILE), bds::BT_DONE);
  EXPECT_FALSE(bmc().Interface().LockTaken());
}

TEST_F(FileOperations, OnlyCreatingANameWithALowerCaseDWaitsASecond) {
  const struct {
    const char* name;
    UINT8 mode;
    bool waits;
  } cases[] = {
      {"data", bds::BT_CREATE_FILE, true}, {"Data", bds::BT_CREATE_FILE, false}, {"data", bds::BT_OPEN_FILE, false}};
  for (const auto& c : cases) {
    const sim::Ticks start = clock().Now();
    BT_FILE_CONTEXT context;
    EXPECT_EQ(bds::BtOpenFile(context, c.name, c.mode), bds::BT_DONE);
    EXPECT_EQ(clock().Now() - start >= sim::kSecond, c.waits) << c.name;
  }
}

}  // namespace
}  // namespace test
