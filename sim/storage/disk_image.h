// A disk as it lies on the host: a raw image file, never written, or bytes in memory that a test made.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "sim/storage/block_source.h"

namespace sim {

struct DiskImageOptions {
  std::uint32_t blockSize = 512;  // 512, 2048 or 4096
  // Size that the medium claims, in bytes; 0: what the image holds, rounded up to a block. A claim beyond the image's
  // end stands for an image that was cut short: reads there answer EFI_DEVICE_ERROR.
  std::uint64_t claimedSize = 0;
};

// Opens the raw image file `path` for reading. Null, with the reason in `error`, when there is no such file, it is
// no regular file or empty, or the block size is none of the three.
[[nodiscard]] BlockSourcePtr OpenDiskImage(const std::filesystem::path& path, const DiskImageOptions& options,
                                           std::string& error);

// A disk with these bytes. Null when there are none or the block size is none of the three.
[[nodiscard]] BlockSourcePtr MakeMemoryDisk(std::vector<std::byte> bytes, const DiskImageOptions& options = {});

}  // namespace sim
