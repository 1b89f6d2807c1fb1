// MBR partition tables with their extended chain, walked by The Sleuth Kit, which refuses chains that turn in circles.
// A boot sector that is a file system's own ends with the same two bytes as an MBR and is told apart here.
#include <algorithm>
#include <charconv>
#include <string_view>

#include "sim/storage/little_endian.h"
#include "sim/storage/partitions.h"
#include "sim/storage/tsk_image.h"
#include "sim/storage/volume_probe.h"

namespace sim {
namespace {

constexpr std::uint8_t kProtective = 0xEE;
constexpr std::uint8_t kEfiSystem = 0xEF;

struct VolumeSystemCloser {
  void operator()(TSK_VS_INFO* volumes) const { tsk_vs_close(volumes); }
};

// The library tells a partition's type in its description only: "Win95 FAT32 (0x0b)".
std::uint8_t TypeFromDescription(const char* description) {
  const std::string_view text = description != nullptr ? description : "";
  const std::size_t at = text.rfind("(0x");
  std::uint8_t type = 0;
  if (at == std::string_view::npos) return 0;
  std::from_chars(text.data() + at + 3, text.data() + text.size(), type, 16);
  return type;
}

bool TableIsEmpty(std::span<const std::byte> sector) {
  return std::all_of(sector.begin() + 446, sector.begin() + 510, [](std::byte byte) { return byte == std::byte{0}; });
}

bool BootFlagsHold(std::span<const std::byte> sector) {
  for (std::size_t i = 0; i < 4; ++i) {
    if ((sector[446 + 16 * i] & std::byte{0x7F}) != std::byte{0}) return false;
  }
  return true;
}

}  // namespace

EFI_STATUS ReadMbrPartitions(const BlockSourcePtr& medium, std::vector<Partition>& partitions) {
  std::vector<std::byte> sector(medium->BlockSize());
  if (EFI_ERROR(medium->Read(0, sector))) return EFI_DEVICE_ERROR;
  if (sector[510] != std::byte{0x55} || sector[511] != std::byte{0xAA}) return EFI_NOT_FOUND;
  if (TableIsEmpty(sector) || !BootFlagsHold(sector) || ProbeVolume(*medium) == VolumeKind::Fat) return EFI_NOT_FOUND;

  const TskImage image = OpenTskImage(medium);
  if (image == nullptr) return EFI_DEVICE_ERROR;
  const std::unique_ptr<TSK_VS_INFO, VolumeSystemCloser> volumes(tsk_vs_open(image.get(), 0, TSK_VS_TYPE_DOS));
  if (volumes == nullptr) {
    tsk_error_reset();
    return EFI_VOLUME_CORRUPTED;
  }
  const std::uint64_t mediumBlocks = medium->Size() / medium->BlockSize();
  std::uint32_t logical = 5;
  for (TSK_PNUM_T i = 0; i < volumes->part_count; ++i) {
    const TSK_VS_PART_INFO* part = tsk_vs_part_get(volumes.get(), i);
    if (part == nullptr || (part->flags & TSK_VS_PART_FLAG_ALLOC) == 0) continue;
    if ((part->flags & TSK_VS_PART_FLAG_META) != 0) continue;
    const std::uint8_t type = TypeFromDescription(part->desc);
    const std::uint32_t number = part->table_num == 0 ? static_cast<std::uint32_t>(part->slot_num) + 1 : logical++;
    if (type == 0 || type == kProtective || part->len == 0 || part->start == 0 || part->start >= mediumBlocks) continue;
    Partition partition{.scheme = PartitionScheme::Mbr,
                        .number = number,
                        .startBlock = part->start,
                        .blockCount = part->len,
                        .mbrType = type,
                        .efiSystem = type == kEfiSystem};
    std::memcpy(partition.signature.data(), sector.data() + 0x1B8, 4);
    partitions.push_back(partition);
  }
  std::sort(partitions.begin(), partitions.end(),
            [](const Partition& a, const Partition& b) { return a.number < b.number; });
  return EFI_SUCCESS;
}

EFI_STATUS DiscoverPartitions(const BlockSourcePtr& medium, std::vector<Partition>& partitions) {
  partitions.clear();
  const EFI_STATUS gpt = ReadGptPartitions(*medium, partitions);
  if (gpt != EFI_NOT_FOUND) return gpt;
  const EFI_STATUS torito = ReadElToritoImages(*medium, partitions);
  if (torito != EFI_NOT_FOUND) return torito;
  const EFI_STATUS mbr = ReadMbrPartitions(medium, partitions);
  return mbr == EFI_NOT_FOUND ? EFI_SUCCESS : mbr;
}

}  // namespace sim
