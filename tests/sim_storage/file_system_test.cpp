// FAT and ISO 9660 volumes made by mkfs.vfat, mtools and xorriso, sound ones and damaged ones.
#include "sim/storage/file_system.h"

#include <random>
#include <set>

#include "sim/storage/disk_image.h"
#include "sim/storage/partitions.h"
#include "sim/storage/volume_probe.h"
#include "tests/sim_storage/image_builder.h"

namespace sim::test {
namespace {

class FatVolume : public testing::Test {
 protected:
  FatVolume() {
    for (int i = 0; i < 9000; ++i) big_ += "line " + std::to_string(i) + "\n";
    files_ = folder_.Write("loader", "hello loader").string() + "=EFI/BOOT/BOOTX64.EFI " +
             folder_.Write("big", big_).string() + "=EFI/big.txt " + folder_.Write("empty", "").string() +
             "=EFI/empty.bin " + folder_.Write("long", "L").string() + "=EFI/A_rather_long_name_of_a_file.config";
  }

  [[nodiscard]] std::unique_ptr<FileSystemReader> OpenImage(const std::filesystem::path& image) const {
    std::string error;
    std::unique_ptr<FileSystemReader> reader;
    EXPECT_EQ(OpenFileSystem(OpenDiskImage(image, {}, error), reader), EFI_SUCCESS) << image << error;
    return reader;
  }

  static std::string ReadAll(FileSystemReader& reader, std::string_view path) {
    std::unique_ptr<OpenedFile> file;
    EXPECT_EQ(reader.Open(path, file), EFI_SUCCESS) << path;
    if (file == nullptr) return {};
    std::string text(file->Entry().size, '?');
    std::size_t done = 0;
    EXPECT_EQ(file->Read(0, std::as_writable_bytes(std::span(text)), done), EFI_SUCCESS) << path;
    EXPECT_EQ(done, text.size());
    return text;
  }

  TemporaryFolder folder_;
  std::string big_;
  std::string files_;
};

TEST_F(FatVolume, EveryFatWidthIsRead) {
  for (const auto& [width, size] : {std::pair{"12", "3"}, {"16", "12"}, {"32", "34"}}) {
    const auto image = MakeImage(folder_, "fat", std::string(size) + " --label VOLUME1 --fat " + width + " " + files_);
    const auto reader = OpenImage(image);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->Info().label, "VOLUME1") << width;
    EXPECT_GT(reader->Info().totalBytes, 2'000'000U);
    EXPECT_EQ(ReadAll(*reader, "\\EFI\\BOOT\\BOOTX64.EFI"), "hello loader") << width;
    EXPECT_EQ(ReadAll(*reader, "efi/Big.TXT"), big_) << width;
    EXPECT_EQ(ReadAll(*reader, "\\EFI\\.\\BOOT\\..\\empty.bin"), "") << width;
    EXPECT_EQ(ReadAll(*reader, "\\EFI\\A_RATH~1.CON"), "L") << "by its short name";
  }
}

TEST_F(FatVolume, PathsThatLeadNowhereAreNotFound) {
  const auto reader = OpenImage(MakeImage(folder_, "fat", "3 --fat 12 " + files_));
  std::string deep;
  for (int i = 0; i < 100; ++i) deep += "\\a";
  for (const std::string& path : {std::string("\\EFI\\none"), std::string("\\..\\EFI"), std::string("EFI/../../EFI"),
                                  std::string("\\EFI\\big.txt\\x"), deep, std::string("\\$MBR"),
                                  std::string("\\$OrphanFiles"), std::string("a\0b", 3), std::string("VOLUME1")}) {
    std::unique_ptr<OpenedFile> file;
    EXPECT_EQ(reader->Open(path, file), EFI_NOT_FOUND) << path;
    EXPECT_EQ(file, nullptr);
  }
}

TEST_F(FatVolume, ReadsStopAtTheFilesEnd) {
  const auto reader = OpenImage(MakeImage(folder_, "fat", "3 --fat 12 " + files_));
  std::unique_ptr<OpenedFile> file;
  ASSERT_EQ(reader->Open("\\EFI\\big.txt", file), EFI_SUCCESS);
  Bytes piece(100);
  std::size_t done = 7;
  ASSERT_EQ(file->Read(big_.size() - 10, piece, done), EFI_SUCCESS);
  EXPECT_EQ(done, 10U);
  ASSERT_EQ(file->Read(big_.size(), piece, done), EFI_SUCCESS);
  EXPECT_EQ(done, 0U);
  ASSERT_EQ(file->Read(UINT64_MAX, piece, done), EFI_SUCCESS);
  EXPECT_EQ(done, 0U);
}

TEST_F(FatVolume, ImageCutShortAnswersWithAnError) {
  Bytes bytes = ReadFileBytes(MakeImage(folder_, "fat", "3 --fat 12 " + files_));
  const std::uint64_t whole = bytes.size();
  bytes.resize(60'000);  // FATs and root are there, most of big.txt is not
  std::unique_ptr<FileSystemReader> reader;
  ASSERT_EQ(OpenFileSystem(MakeMemoryDisk(bytes, {.blockSize = 512, .claimedSize = whole}), reader), EFI_SUCCESS);
  std::unique_ptr<OpenedFile> file;
  ASSERT_EQ(reader->Open("\\EFI\\big.txt", file), EFI_SUCCESS);
  Bytes content(file->Entry().size);
  std::size_t done = 0;
  EXPECT_TRUE(EFI_ERROR(file->Read(0, content, done)));
}

TEST_F(FatVolume, RandomDamageEndsInAStatus) {
  const Bytes original = ReadFileBytes(MakeImage(folder_, "fat", "3 --fat 12 " + files_));
  std::mt19937 random(11);
  int read = 0;
  for (int round = 0; round < 300; ++round) {
    Bytes disk = original;
    // Boot sector, FATs, root and the first folders: where damage hurts.
    for (int i = 0; i < 12; ++i) disk[random() % 30'000] = static_cast<std::byte>(random());
    std::unique_ptr<FileSystemReader> reader;
    if (EFI_ERROR(OpenFileSystem(MakeMemoryDisk(disk), reader))) continue;
    std::vector<std::string> folders{""};
    for (std::size_t i = 0; i < folders.size() && i < 20; ++i) {
      std::unique_ptr<OpenedFile> folder;
      std::vector<FileEntry> entries;
      if (EFI_ERROR(reader->Open(folders[i], folder)) || EFI_ERROR(folder->List(entries))) continue;
      for (const FileEntry& entry : entries) {
        const std::string path = folders[i] + "\\" + entry.name;
        if (entry.IsDirectory()) folders.push_back(path);
        std::unique_ptr<OpenedFile> file;
        Bytes piece(4096);
        std::size_t done = 0;
        if (EFI_ERROR(reader->Open(path, file)) || file->Entry().IsDirectory()) continue;
        if (EFI_ERROR(file->Read(0, piece, done))) continue;
        EXPECT_EQ(done, std::min<std::size_t>(piece.size(), file->Entry().size));
        ++read;
      }
    }
  }
  EXPECT_GT(read, 100);
}

TEST(FileSystem, WhatIsNoVolumeIsUnsupported) {
  std::unique_ptr<FileSystemReader> reader;
  EXPECT_EQ(OpenFileSystem(MakeMemoryDisk(Bytes(100'000)), reader), EFI_UNSUPPORTED);
  Bytes pretender(512);
  const unsigned char start[] = {0xEB, 0x3C, 0x90, 'x',  'x',  'x',  'x',  'x', 'x',
                                 'x',  'x',  0x00, 0x02, 0x01, 0x01, 0x00, 0x02};
  std::memcpy(pretender.data(), start, sizeof start);
  Put<std::uint8_t>(pretender, 21, 0xF8);
  Put<std::uint16_t>(pretender, 22, 9);
  Put<std::uint16_t>(pretender, 510, 0xAA55);
  EXPECT_TRUE(EFI_ERROR(OpenFileSystem(MakeMemoryDisk(pretender), reader)));
  EXPECT_EQ(reader, nullptr);
}

}  // namespace
}  // namespace sim::test
