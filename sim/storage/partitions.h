// The partitions of a disk as the firmware's partition driver offers them: GPT, MBR with its extended chain, and the
// EFI boot images of an El Torito disc, each with what its hard-drive or CD-ROM device path node holds.
#pragma once

#include <array>
#include <vector>

#include "platform/device_path.h"
#include "sim/storage/block_source.h"

namespace sim {

enum class PartitionScheme { Gpt, Mbr, ElTorito };

struct Partition {
  PartitionScheme scheme = PartitionScheme::Gpt;
  // GPT: entry index + 1. MBR: 1 to 4, then 5 onward along the extended chain. El Torito: the boot catalog entry,
  // the initial entry being 0.
  std::uint32_t number = 0;
  std::uint64_t startBlock = 0;              // in blocks of the medium
  std::uint64_t blockCount = 0;              // in blocks of the medium, at least 1
  std::array<std::uint8_t, 16> signature{};  // GPT: unique GUID in its memory form; MBR: disk signature, then zeros
  EFI_GUID typeGuid{};                       // GPT only
  std::uint8_t mbrType = 0;                  // MBR only
  bool efiSystem = false;                    // GPT type C12A7328-..., MBR type 0xEF
  std::u16string name{};                     // GPT only; ends at the first NUL
};

// UEFI 2.10, 5.3.3: the type of an EFI system partition; firmware installs it as a protocol on such partitions.
inline constexpr EFI_GUID kEfiSystemPartitionType{
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};

// Finds the partitions of the medium in the order of their numbers, by the first scheme that holds: GPT, El Torito, MBR
// (UEFI 2.10, 13.3.2). EFI_SUCCESS with an empty list: an unpartitioned medium. When no scheme holds, what is wrong with
// the first that is there: EFI_VOLUME_CORRUPTED, none of its copies holds together; EFI_DEVICE_ERROR, the medium could
// not be read where its tables lie.
[[nodiscard]] EFI_STATUS DiscoverPartitions(const BlockSource& medium, std::vector<Partition>& partitions);

// The single schemes. EFI_NOT_FOUND: the medium has no such table, or one that offers nothing.
[[nodiscard]] EFI_STATUS ReadGptPartitions(const BlockSource& medium, std::vector<Partition>& partitions);
[[nodiscard]] EFI_STATUS ReadElToritoImages(const BlockSource& medium, std::vector<Partition>& partitions);
[[nodiscard]] EFI_STATUS ReadMbrPartitions(const BlockSource& medium, std::vector<Partition>& partitions);

// Whether block 0 says that the disk is a GPT's (UEFI 2.10, 5.2.3). Without it, a GPT that is found is what an earlier
// use of the disk left behind.
[[nodiscard]] bool HasProtectiveMbr(const BlockSource& medium);

}  // namespace sim
