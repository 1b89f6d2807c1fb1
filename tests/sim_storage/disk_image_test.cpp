// Disk images: sizes, partial last blocks, images cut short, and files that are no images.
#include "sim/storage/disk_image.h"

#include "tests/sim_storage/image_builder.h"

namespace sim::test {
namespace {

Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i * 7 + i / 256);
  return bytes;
}

TEST(DiskImage, PartialLastBlockReadsAsPaddedAndTheEndIsAnError) {
  const BlockSourcePtr disk = MakeMemoryDisk(Pattern(700));
  Bytes block(512, std::byte{0xEE});
  ASSERT_EQ(disk->Read(512, block), EFI_SUCCESS);
  EXPECT_EQ(block[187], Pattern(700)[699]);
  EXPECT_EQ(block[188], std::byte{0});
  EXPECT_EQ(disk->Read(1024, std::span(block).first(1)), EFI_DEVICE_ERROR);
  EXPECT_EQ(disk->Read(UINT64_MAX, block), EFI_DEVICE_ERROR);
  EXPECT_EQ(disk->Read(1000, block), EFI_DEVICE_ERROR);
}

TEST(DiskImage, ClaimBeyondTheContentIsAnImageCutShort) {
  const BlockSourcePtr disk = MakeMemoryDisk(Pattern(2048), {.blockSize = 512, .claimedSize = 1 << 20});
  Bytes block(512);
  EXPECT_EQ(disk->Size(), 1U << 20);
  EXPECT_EQ(disk->Read(1536, block), EFI_SUCCESS);
  EXPECT_EQ(disk->Read(2048, block), EFI_DEVICE_ERROR);
  EXPECT_EQ(disk->Read(1792, block), EFI_DEVICE_ERROR) << "half in, half out";
}

TEST(DiskImage, WhatIsNoImageIsRefusedWithAReason) {
  const TemporaryFolder folder;
  const auto good = folder.Write("good", std::string(512, 'x'));
  const struct {
    std::filesystem::path path;
    std::uint32_t block;
    const char* reason;
  } cases[] = {{folder.Path() / "missing", 512, "no such image"},
               {folder.Path(), 512, "no such image"},
               {folder.Write("empty", ""), 512, "empty"},
               {good, 1000, "block size 1000"}};
  for (const auto& item : cases) {
    std::string error;
    EXPECT_EQ(OpenDiskImage(item.path, {.blockSize = item.block}, error), nullptr) << item.path;
    EXPECT_NE(error.find(item.reason), std::string::npos) << error;
  }
  EXPECT_EQ(MakeMemoryDisk({}), nullptr);
}

}  // namespace
}  // namespace sim::test
