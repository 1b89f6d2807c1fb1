// Whole files: sizes around the piece and the limit, the number of exchanges, and reads that fail on the way.
#include "bmc/bt_read_file.h"

#include <numeric>

#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

using bds::BmcFile;

class ReadFile : public BmcFixture {
 protected:
  static Bytes Pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return bytes;
  }
  std::optional<Bytes> Read(const char* name) {
    bds::PoolBuffer file;
    found = bds::BtReadBootVariableFile(name, file);
    EXPECT_EQ(found == BmcFile::Present, static_cast<bool>(file.Data));
    if (!file.Data) {
      return std::nullopt;
    }
    const auto* begin = reinterpret_cast<const std::uint8_t*>(file.Data.get());
    return Bytes(begin, begin + file.Size);
  }
  BmcFile found = BmcFile::Unknown;
};

TEST_F(ReadFile, EverySizeComesWholeInTheFewestExchanges) {
  for (const std::size_t size : {0, 1, 57, 58, 59, 60, 117, 118, 119, 65'490, 65'535, 65'536}) {
    SCOPED_TRACE(size);
    files().Write("BootOrder", Pattern(size));
    const std::uint64_t before = bmc().Interface().Exchanges();
    const sim::Ticks start = clock().Now();
    EXPECT_EQ(Read("BootOrder"), Pattern(size));
    EXPECT_EQ(bmc().Interface().Exchanges() - before, 1 + (size / 59 + 1) + 1);  // open, pieces, close
    EXPECT_EQ(bmc().Interface().Trace().back().request[1], 18);
    EXPECT_GE(clock().Now() - start, 200 * sim::kMillisecond);
  }
  EXPECT_EQ(PoolBlocks(), 0U);
}

TEST_F(ReadFile, AFileBeyondTheLimitIsRefusedAsSoonAsItShows) {
  for (const std::size_t size : {65'537, 70'000, 1'000'000}) {
    SCOPED_TRACE(size);
    files().Write("BootOrder", Pattern(size));
    const std::uint64_t before = bmc().Interface().Exchanges();
    EXPECT_EQ(Read("BootOrder"), std::nullopt);
    EXPECT_EQ(found, BmcFile::Missing);
    EXPECT_EQ(bmc().Interface().Exchanges() - before, 1U + 1111U + 1U);
  }
  EXPECT_EQ(PoolBlocks(), 0U);
}

TEST_F(ReadFile, AFailureOnTheWayEndsItAndTellsWhatItMeans) {
  const struct {
    const char* fault;
    BmcFile found;
    std::uint64_t exchanges;  // at most
  } cases[] = {
      {"refuse-open", BmcFile::Missing, 1},
      {"no-answer", BmcFile::Unknown, 1},
      {"lock-held:always", BmcFile::Unknown, 0},
      {"wrong-echo", BmcFile::Unknown, 1},
      {"no-answer@2", BmcFile::Unknown, 4},
      {"wrong-echo@3", BmcFile::Unknown, 5},
      {"lying-length:1@2", BmcFile::Unknown, 4},
      {"lying-length:255@2", BmcFile::Unknown, 4},
      {"bad-checksum:always@2", BmcFile::Unknown, 102},
      {"h2b-stuck:always@2", BmcFile::Unknown, 1},
      {"lock-held:always@2", BmcFile::Unknown, 2},
      {"refuse-read@3", BmcFile::Unknown, 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    NextBoot();
    files().Write("Boot0001", Pattern(200));
    AddFault(c.fault);
    const std::uint64_t before = bmc().Interface().Exchanges();
    EXPECT_EQ(Read("Boot0001"), std::nullopt);
    EXPECT_EQ(found, c.found);
    EXPECT_LE(bmc().Interface().Exchanges() - before, c.exchanges);
    EXPECT_FALSE(bmc().Interface().LockTaken());
  }
  EXPECT_EQ(PoolBlocks(), 0U);
}

TEST_F(ReadFile, ADamagedPieceIsAskedForAgainAndNoneIsLost) {
  files().Write("Boot0001", Pattern(200));
  AddFault("bad-checksum:2@3");
  EXPECT_EQ(Read("Boot0001"), Pattern(200));
  EXPECT_EQ(counters().Of("bmc.retries"), 2U);
}

TEST_F(ReadFile, AMissingFileIsSaidToBe) {
  EXPECT_EQ(Read("Boot0009"), std::nullopt);
  EXPECT_EQ(found, BmcFile::Missing);
  EXPECT_TRUE(Logged("UEFIBoot: fails to open Boot0009 file for reading \n"));
}

}  // namespace
}  // namespace test
