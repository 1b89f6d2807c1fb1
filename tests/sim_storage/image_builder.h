// Partition tables made byte by byte, and images made by the command line tools, for the tests of storage and bus.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace sim::test {

using Bytes = std::vector<std::byte>;

template <typename Integer>
void Put(Bytes& bytes, std::size_t offset, Integer value) {
  ASSERT_LE(offset + sizeof value, bytes.size());
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

inline std::uint32_t TestCrc(const std::byte* data, std::size_t size) {
  std::uint32_t crc = ~0U;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= static_cast<std::uint32_t>(data[i]);
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
  }
  return ~crc;
}

struct GptEntry {
  EFI_GUID type;
  EFI_GUID id;
  std::uint64_t first;
  std::uint64_t last;
};

// Writes the checksums of a GPT header and of its 128-byte entries anew, after a test changed either.
inline void SealGpt(Bytes& disk, std::size_t headerBlock, std::size_t block) {
  std::byte* header = disk.data() + headerBlock * block;
  std::uint64_t entries = 0;
  std::uint32_t count = 0;
  std::memcpy(&entries, header + 72, 8);
  std::memcpy(&count, header + 80, 4);
  const std::uint32_t entriesCrc = TestCrc(disk.data() + entries * block, std::size_t{count} * 128);
  std::memcpy(header + 88, &entriesCrc, 4);
  std::memset(header + 16, 0, 4);
  const std::uint32_t crc = TestCrc(header, 92);
  std::memcpy(header + 16, &crc, 4);
}

// A disk of `blocks` blocks with a protective MBR and both copies of a GUID partition table of 128 entries.
inline Bytes MakeGptDisk(std::size_t blocks, std::size_t block, const std::vector<GptEntry>& entries) {
  Bytes disk(blocks * block);
  const std::size_t tableBlocks = 128 * 128 / block;
  const auto write = [&](std::size_t headerBlock, std::size_t otherBlock, std::size_t table) {
    const std::size_t base = headerBlock * block;
    std::memcpy(disk.data() + base, "EFI PART", 8);
    Put<std::uint32_t>(disk, base + 8, 0x00010000);
    Put<std::uint32_t>(disk, base + 12, 92);
    Put<std::uint64_t>(disk, base + 24, headerBlock);
    Put<std::uint64_t>(disk, base + 32, otherBlock);
    Put<std::uint64_t>(disk, base + 40, 2 + tableBlocks);
    Put<std::uint64_t>(disk, base + 48, blocks - tableBlocks - 2);
    Put<std::uint64_t>(disk, base + 72, table);
    Put<std::uint32_t>(disk, base + 80, 128);
    Put<std::uint32_t>(disk, base + 84, 128);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      const std::size_t at = table * block + i * 128;
      Put(disk, at, entries[i].type);
      Put(disk, at + 16, entries[i].id);
      Put(disk, at + 32, entries[i].first);
      Put(disk, at + 40, entries[i].last);
    }
    SealGpt(disk, headerBlock, block);
  };
  Put<std::uint8_t>(disk, 450, 0xEE);
  Put<std::uint32_t>(disk, 454, 1);
  Put<std::uint32_t>(disk, 458, static_cast<std::uint32_t>(blocks - 1));
  Put<std::uint16_t>(disk, 510, 0xAA55);
  write(1, blocks - 1, 2);
  write(blocks - 1, 1, blocks - 1 - tableBlocks);
  return disk;
}

// A folder that goes away with its content.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "sim-storage-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

  std::filesystem::path Write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

 private:
  std::filesystem::path path_;
};

// Runs examples/make_disk_image.sh (tests run in the root of the tree); the test fails when it does.
inline std::filesystem::path MakeImage(const TemporaryFolder& folder, const std::string& kind,
                                       const std::string& rest) {
  static int counter = 0;
  const std::filesystem::path image = folder.Path() / ("image" + std::to_string(++counter));
  const std::string command = "examples/make_disk_image.sh " + kind + " " + image.string() + " " + rest;
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return image;
}

inline Bytes ReadFileBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  Bytes bytes(text.size());
  if (!text.empty()) std::memcpy(bytes.data(), text.data(), text.size());
  return bytes;
}

}  // namespace sim::test
