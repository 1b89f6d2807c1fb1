// Partition tables: what is found on sound ones, and a clear answer on every kind of damage.
#include <random>

#include "sim/storage/disk_image.h"
#include "sim/storage/partitions.h"
#include "tests/sim_storage/image_builder.h"

namespace sim::test {
namespace {

constexpr EFI_GUID kData{0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
constexpr EFI_GUID kId1{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constexpr EFI_GUID kId2{2, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

std::vector<Partition> Discover(Bytes disk, std::uint32_t block, EFI_STATUS expected = EFI_SUCCESS) {
  std::vector<Partition> partitions;
  EXPECT_EQ(DiscoverPartitions(*MakeMemoryDisk(std::move(disk), {.blockSize = block}), partitions), expected);
  return partitions;
}

const std::vector<GptEntry> kTwoEntries{{kEfiSystemPartitionType, kId1, 40, 59}, {kData, kId2, 60, 80}};

TEST(Gpt, EntriesGiveGuidsAndRangesAtEveryBlockSize) {
  for (const std::uint32_t block : {512U, 2048U, 4096U}) {
    const auto found = Discover(MakeGptDisk(200, block, kTwoEntries), block);
    ASSERT_EQ(found.size(), 2U) << block;
    EXPECT_EQ(found[0].number, 1U);
    EXPECT_EQ(found[0].startBlock, 40U);
    EXPECT_EQ(found[0].blockCount, 20U);
    EXPECT_TRUE(found[0].efiSystem);
    EXPECT_EQ(std::memcmp(found[0].signature.data(), &kId1, 16), 0);
    EXPECT_EQ(found[1].number, 2U);
    EXPECT_FALSE(found[1].efiSystem);
    EXPECT_EQ(found[1].scheme, PartitionScheme::Gpt);
  }
}

TEST(Gpt, DamagedPrimaryFallsBackToTheBackup) {
  for (const std::size_t spot : {512U + 16, 512U + 30, 1024U + 40}) {
    Bytes disk = MakeGptDisk(200, 512, kTwoEntries);
    disk[spot] ^= std::byte{0x10};
    EXPECT_EQ(Discover(disk, 512).size(), 2U) << spot;
    disk[199 * 512 + 20] ^= std::byte{0x10};
    EXPECT_TRUE(Discover(disk, 512, EFI_VOLUME_CORRUPTED).empty()) << spot;
  }
}

TEST(Gpt, EntriesThatLieAreLeftOut) {
  const struct {
    const char* what;
    GptEntry entry;
  } cases[] = {{"ends before it begins", {kData, kId2, 90, 89}},
               {"begins in the table", {kData, kId2, 3, 80}},
               {"ends behind the usable blocks", {kData, kId2, 100, 199}},
               {"overlaps", {kData, kId2, 50, 70}},
               {"repeats a GUID", {kData, kId1, 100, 110}},
               {"wraps", {kData, kId2, UINT64_MAX, 10}}};
  for (const auto& item : cases) {
    const auto found = Discover(MakeGptDisk(200, 512, {kTwoEntries[0], item.entry}), 512);
    EXPECT_EQ(found.size(), 1U) << item.what;
  }
}

TEST(Gpt, HeaderFieldsOutOfBoundsAreCorruptNotFollowed) {
  const struct {
    std::size_t offset;
    std::uint64_t value;
    std::size_t size;
  } cases[] = {{12, 91, 4},         {12, 513, 4}, {24, 2, 8}, {72, UINT64_MAX, 8}, {72, 1 << 20, 8},
               {80, 0xFFFFFFFF, 4}, {84, 127, 4}, {84, 0, 4}, {84, 0x80000000, 4}};
  for (const auto& item : cases) {
    Bytes disk = MakeGptDisk(200, 512, kTwoEntries);
    std::memset(disk.data() + 199 * 512, 0, 512);
    std::memcpy(disk.data() + 512 + item.offset, &item.value, item.size);
    std::memset(disk.data() + 512 + 16, 0, 4);
    Put<std::uint32_t>(disk, 512 + 16, TestCrc(disk.data() + 512, 92));
    std::vector<Partition> found;
    const EFI_STATUS status = DiscoverPartitions(*MakeMemoryDisk(disk), found);
    EXPECT_TRUE(EFI_ERROR(status)) << item.offset << " " << item.value;
    EXPECT_TRUE(found.empty());
  }
}

void PutMbrEntry(Bytes& disk, std::size_t at, std::uint8_t type, std::uint32_t first, std::uint32_t count) {
  Put<std::uint8_t>(disk, at + 4, type);
  Put<std::uint32_t>(disk, at + 8, first);
  Put<std::uint32_t>(disk, at + 12, count);
}

Bytes MakeMbrDisk(std::size_t blocks) {
  Bytes disk(blocks * 512);
  Put<std::uint32_t>(disk, 440, 0x12345678);
  Put<std::uint16_t>(disk, 510, 0xAA55);
  return disk;
}

TEST(Mbr, PrimaryAndLogicalPartitionsAreNumberedApart) {
  Bytes disk = MakeMbrDisk(400);
  PutMbrEntry(disk, 446, 0xEF, 10, 20);
  PutMbrEntry(disk, 478, 0x05, 100, 200);
  PutMbrEntry(disk, 100 * 512 + 446, 0x0C, 1, 30);
  PutMbrEntry(disk, 100 * 512 + 462, 0x05, 50, 100);
  Put<std::uint16_t>(disk, 100 * 512 + 510, 0xAA55);
  PutMbrEntry(disk, 150 * 512 + 446, 0x83, 2, 40);
  Put<std::uint16_t>(disk, 150 * 512 + 510, 0xAA55);
  const auto found = Discover(disk, 512);
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].number, 1U);
  EXPECT_TRUE(found[0].efiSystem);
  EXPECT_EQ(found[0].mbrType, 0xEF);
  EXPECT_EQ(found[0].signature[0], 0x78);
  EXPECT_EQ(found[0].signature[3], 0x12);
  EXPECT_EQ(found[0].signature[4], 0);
  EXPECT_EQ(found[1].number, 5U);
  EXPECT_EQ(found[1].startBlock, 101U);
  EXPECT_EQ(found[1].mbrType, 0x0C);
  EXPECT_EQ(found[2].number, 6U);
  EXPECT_EQ(found[2].startBlock, 152U);
  EXPECT_EQ(found[2].blockCount, 40U);
}

TEST(Mbr, ChainThatTurnsInACircleEnds) {
  Bytes disk = MakeMbrDisk(400);
  PutMbrEntry(disk, 446, 0x05, 100, 200);
  PutMbrEntry(disk, 100 * 512 + 446, 0x0C, 1, 30);
  PutMbrEntry(disk, 100 * 512 + 462, 0x05, 0, 200);
  Put<std::uint16_t>(disk, 100 * 512 + 510, 0xAA55);
  EXPECT_EQ(Discover(disk, 512).size(), 1U);
}

TEST(Mbr, ChainIsCappedAndItsLinksOnlyGoForward) {
  Bytes disk = MakeMbrDisk(4000);
  PutMbrEntry(disk, 446, 0x0F, 100, 3900);
  for (std::uint32_t link = 0; link < 1000; ++link) {
    const std::size_t at = (100 + std::size_t{3} * link) * 512;
    PutMbrEntry(disk, at + 446, 0x83, 1, 2);
    PutMbrEntry(disk, at + 462, 0x05, 3 * (link + 1), 3);
    Put<std::uint16_t>(disk, at + 510, 0xAA55);
  }
  const auto found = Discover(disk, 512);
  ASSERT_EQ(found.size(), 128U);
  EXPECT_EQ(found.back().number, 132U);
  EXPECT_EQ(found.back().startBlock, 100U + 3 * 127 + 1);
  PutMbrEntry(disk, 103 * 512 + 462, 0x05, 0, 3);
  EXPECT_EQ(Discover(disk, 512).size(), 2U);
}

TEST(Discover, TheFirstSchemeThatHoldsWins) {
  Bytes stale = MakeGptDisk(200, 512, kTwoEntries);
  PutMbrEntry(stale, 446, 0x0C, 50, 100);
  ASSERT_EQ(Discover(stale, 512).size(), 1U) << "an ordinary MBR: its GPT is of an earlier use";
  EXPECT_EQ(Discover(stale, 512)[0].mbrType, 0x0C);
  Bytes none = MakeGptDisk(200, 512, kTwoEntries);
  std::memset(none.data(), 0, 512);
  EXPECT_TRUE(Discover(none, 512).empty()) << "no MBR guards the GPT";
  Bytes hybrid = MakeGptDisk(200, 512, kTwoEntries);
  PutMbrEntry(hybrid, 462, 0x0C, 50, 100);
  EXPECT_EQ(Discover(hybrid, 512).size(), 2U) << "both hold";
  hybrid[512 + 16] ^= std::byte{1};
  hybrid[199 * 512 + 16] ^= std::byte{1};
  ASSERT_EQ(Discover(hybrid, 512).size(), 1U) << "the GPT is broken, the MBR's own partition is not";
  EXPECT_EQ(Discover(hybrid, 512)[0].number, 2U);
}

TEST(Mbr, WhatOnlyLooksLikeATableIsNone) {
  EXPECT_TRUE(Discover(MakeMbrDisk(100), 512).empty()) << "no entry";
  Bytes flags = MakeMbrDisk(100);
  PutMbrEntry(flags, 446, 0x0C, 10, 20);
  Put<std::uint8_t>(flags, 446, 0x13);
  EXPECT_TRUE(Discover(flags, 512).empty()) << "boot flag neither 0 nor 0x80";
  Bytes protective = MakeMbrDisk(100);
  PutMbrEntry(protective, 446, 0xEE, 1, 99);
  EXPECT_TRUE(Discover(protective, 512).empty()) << "the GPT is gone, its guard stays";
  Bytes beyond = MakeMbrDisk(100);
  PutMbrEntry(beyond, 446, 0x0C, 10, 91);
  EXPECT_TRUE(Discover(beyond, 512).empty()) << "ends behind the medium";
  Bytes outside = MakeMbrDisk(100);
  PutMbrEntry(outside, 446, 0x0C, 5000, 20);
  std::vector<Partition> found;
  EXPECT_NE(DiscoverPartitions(*MakeMemoryDisk(outside), found), EFI_DEVICE_ERROR);
  EXPECT_TRUE(found.empty());
  EXPECT_TRUE(Discover(Bytes(512 * 100), 512).empty()) << "a blank disk";
  EXPECT_TRUE(Discover(Bytes(512), 512).empty()) << "one block";
}

// Descriptor chain and boot catalog of a disc of 64 sectors; the catalog lies in sector 20.
Bytes MakeDisc(std::uint8_t platform) {
  Bytes disc(64 * 2048);
  for (const auto& [sector, type] : {std::pair<std::size_t, std::uint8_t>{16, 1}, {17, 0}, {18, 0xFF}}) {
    Put<std::uint8_t>(disc, sector * 2048, type);
    std::memcpy(disc.data() + sector * 2048 + 1, "CD001", 5);
  }
  Put<std::uint32_t>(disc, 16 * 2048 + 80, 64);
  std::memcpy(disc.data() + 17 * 2048 + 7, "EL TORITO SPECIFICATION", 23);
  Put<std::uint32_t>(disc, 17 * 2048 + 0x47, 20);
  const std::size_t catalog = 20 * 2048;
  Put<std::uint8_t>(disc, catalog, 1);
  Put<std::uint8_t>(disc, catalog + 1, platform);
  Put<std::uint16_t>(disc, catalog + 30, 0xAA55);
  Put<std::uint16_t>(disc, catalog + 28, static_cast<std::uint16_t>(0 - (1 + (platform << 8) + 0xAA55)));
  Put<std::uint8_t>(disc, catalog + 32, 0x88);
  Put<std::uint32_t>(disc, catalog + 40, 30);
  return disc;
}

TEST(ElTorito, CatalogEntriesAreCountedAndOnlyEfiOnesOffered) {
  Bytes disc = MakeDisc(0);
  const std::size_t section = 20 * 2048 + 64;
  Put<std::uint8_t>(disc, section, 0x91);
  Put<std::uint8_t>(disc, section + 1, 0xEF);
  Put<std::uint16_t>(disc, section + 2, 2);
  Put<std::uint8_t>(disc, section + 32, 0x88);
  Put<std::uint16_t>(disc, section + 38, 8);
  Put<std::uint32_t>(disc, section + 40, 40);
  Put<std::uint32_t>(disc, section + 72, 50);  // not bootable
  const auto found = Discover(disc, 2048);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].number, 1U);
  EXPECT_EQ(found[0].startBlock, 40U);
  EXPECT_EQ(found[0].blockCount, 2U);

  const auto initial = Discover(MakeDisc(0xEF), 2048);
  ASSERT_EQ(initial.size(), 1U);
  EXPECT_EQ(initial[0].number, 0U);
  EXPECT_EQ(initial[0].blockCount, 34U) << "a count of 0 reaches to the volume's end";
}

TEST(ElTorito, DamagedCatalogIsCorrupt) {
  Bytes sum = MakeDisc(0xEF);
  Put<std::uint8_t>(sum, 20 * 2048 + 5, 1);
  EXPECT_TRUE(Discover(sum, 2048, EFI_VOLUME_CORRUPTED).empty());
  Bytes outside = MakeDisc(0xEF);
  Put<std::uint32_t>(outside, 17 * 2048 + 0x47, 0xFFFFFFF0);
  EXPECT_TRUE(Discover(outside, 2048, EFI_VOLUME_CORRUPTED).empty());
  Bytes image = MakeDisc(0xEF);
  Put<std::uint32_t>(image, 20 * 2048 + 40, 64);
  EXPECT_TRUE(Discover(image, 2048).empty()) << "an image behind the end";
}

TEST(Discover, RandomDamageNeverLeavesTheMedium) {
  std::mt19937 random(7);
  Bytes mbr = MakeMbrDisk(400);
  PutMbrEntry(mbr, 446, 0x0F, 100, 200);
  PutMbrEntry(mbr, 100 * 512 + 446, 0x0C, 1, 30);
  Put<std::uint16_t>(mbr, 100 * 512 + 510, 0xAA55);
  const std::pair<Bytes, std::uint32_t> disks[] = {
      {MakeGptDisk(200, 512, kTwoEntries), 512}, {mbr, 512}, {MakeDisc(0xEF), 2048}};
  for (const auto& [original, block] : disks) {
    for (int round = 0; round < 400; ++round) {
      Bytes disk = original;
      for (int i = 0; i < 6; ++i) disk[random() % disk.size() % (110 * 512)] = static_cast<std::byte>(random());
      if (round % 4 == 0) disk.resize(std::max<std::size_t>(512, random() % disk.size()));
      const BlockSourcePtr medium = MakeMemoryDisk(disk, {.blockSize = block});
      std::vector<Partition> found;
      (void)DiscoverPartitions(*medium, found);
      for (const Partition& partition : found) {
        EXPECT_LT(partition.startBlock, medium->Size() / block);
        EXPECT_GT(partition.blockCount, 0U);
      }
    }
  }
}

}  // namespace
}  // namespace sim::test
