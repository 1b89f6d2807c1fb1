// GUID partition tables (UEFI 2.10, 5.3). Read here and not through The Sleuth Kit, which keeps neither a partition's
// unique GUID nor its type GUID: boot options name partitions by the former and firmware marks them by the latter.
#include <zlib.h>

#include <algorithm>

#include "sim/storage/little_endian.h"
#include "sim/storage/partitions.h"

namespace sim {
namespace {

constexpr std::uint64_t kGptSignature = 0x5452415020494645;  // "EFI PART"
constexpr std::size_t kHeaderSize = 92;
constexpr std::uint32_t kMaximumEntries = 1024;
constexpr std::uint32_t kMaximumEntrySize = 4096;
constexpr std::size_t kNameCharacters = 36;

struct GptHeader {
  std::uint64_t firstUsable;
  std::uint64_t lastUsable;
  std::uint64_t entriesBlock;
  std::uint32_t entryCount;
  std::uint32_t entrySize;
  std::uint32_t entriesCrc;
};

std::uint32_t Crc32(std::span<const std::byte> bytes) {
  return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

EFI_STATUS ReadHeader(const BlockSource& medium, std::uint64_t block, GptHeader& header) {
  std::vector<std::byte> raw(medium.BlockSize());
  if (EFI_ERROR(medium.Read(block * medium.BlockSize(), raw))) return EFI_DEVICE_ERROR;
  if (ReadLittle<std::uint64_t>(raw, 0) != kGptSignature) return EFI_NOT_FOUND;
  const std::uint32_t size = ReadLittle<std::uint32_t>(raw, 12);
  if (size < kHeaderSize || size > raw.size()) return EFI_VOLUME_CORRUPTED;
  const std::uint32_t crc = ReadLittle<std::uint32_t>(raw, 16);
  std::fill_n(raw.begin() + 16, 4, std::byte{0});
  if (Crc32(std::span(raw).first(size)) != crc) return EFI_CRC_ERROR;
  if (ReadLittle<std::uint64_t>(raw, 24) != block) return EFI_VOLUME_CORRUPTED;
  const std::uint64_t blocks = medium.Size() / medium.BlockSize();
  header = {ReadLittle<std::uint64_t>(raw, 40), ReadLittle<std::uint64_t>(raw, 48), ReadLittle<std::uint64_t>(raw, 72),
            ReadLittle<std::uint32_t>(raw, 80), ReadLittle<std::uint32_t>(raw, 84), ReadLittle<std::uint32_t>(raw, 88)};
  const bool sane = header.entryCount <= kMaximumEntries && header.entrySize >= 128 &&
                    header.entrySize <= kMaximumEntrySize && header.entrySize % 128 == 0 && header.firstUsable >= 2 &&
                    header.firstUsable <= header.lastUsable && header.lastUsable < blocks &&
                    header.entriesBlock <= UINT64_MAX / medium.BlockSize();
  return sane ? EFI_SUCCESS : EFI_VOLUME_CORRUPTED;
}

Partition ReadEntry(std::span<const std::byte> entry, std::uint32_t number) {
  Partition partition{.scheme = PartitionScheme::Gpt, .number = number};
  partition.typeGuid = ReadLittle<EFI_GUID>(entry, 0);
  std::memcpy(partition.signature.data(), entry.data() + 16, 16);
  partition.startBlock = ReadLittle<std::uint64_t>(entry, 32);
  partition.blockCount = ReadLittle<std::uint64_t>(entry, 40) - partition.startBlock + 1;
  partition.efiSystem = partition.typeGuid == kEfiSystemPartitionType;
  for (std::size_t i = 0; i < kNameCharacters; ++i) {
    const char16_t character = ReadLittle<char16_t>(entry, 56 + 2 * i);
    if (character == 0) break;
    partition.name.push_back(character);
  }
  return partition;
}

bool EntryInUse(std::span<const std::byte> entry, const GptHeader& header) {
  if (ReadLittle<EFI_GUID>(entry, 0) == EFI_GUID{}) return false;
  const std::uint64_t first = ReadLittle<std::uint64_t>(entry, 32);
  const std::uint64_t last = ReadLittle<std::uint64_t>(entry, 40);
  return first >= header.firstUsable && first <= last && last <= header.lastUsable;
}

// An entry whose unique GUID or range repeats an earlier one's is dropped: two boot options could not be told apart.
bool Collides(const Partition& one, const std::vector<Partition>& others) {
  return std::any_of(others.begin(), others.end(), [&](const Partition& other) {
    const bool apart = one.startBlock > other.startBlock + (other.blockCount - 1) ||
                       other.startBlock > one.startBlock + (one.blockCount - 1);
    return !apart || one.signature == other.signature;
  });
}

EFI_STATUS ReadTable(const BlockSource& medium, std::uint64_t block, std::vector<Partition>& partitions) {
  GptHeader header{};
  if (const EFI_STATUS status = ReadHeader(medium, block, header); EFI_ERROR(status)) return status;
  std::vector<std::byte> entries(std::size_t{header.entryCount} * header.entrySize);
  if (EFI_ERROR(medium.Read(header.entriesBlock * medium.BlockSize(), entries))) return EFI_DEVICE_ERROR;
  if (Crc32(entries) != header.entriesCrc) return EFI_CRC_ERROR;
  for (std::uint32_t i = 0; i < header.entryCount; ++i) {
    const auto entry = std::span<const std::byte>(entries).subspan(std::size_t{i} * header.entrySize, 128);
    if (!EntryInUse(entry, header)) continue;
    Partition partition = ReadEntry(entry, i + 1);
    if (!Collides(partition, partitions)) partitions.push_back(partition);
  }
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS ReadGptPartitions(const BlockSource& medium, std::vector<Partition>& partitions) {
  const std::uint64_t blocks = medium.Size() / medium.BlockSize();
  if (blocks < 6 || !HasProtectiveMbr(medium)) return EFI_NOT_FOUND;
  const EFI_STATUS primary = ReadTable(medium, 1, partitions);
  if (!EFI_ERROR(primary)) return EFI_SUCCESS;
  partitions.clear();
  const EFI_STATUS backup = ReadTable(medium, blocks - 1, partitions);
  if (!EFI_ERROR(backup)) return EFI_SUCCESS;
  partitions.clear();
  if (primary == EFI_DEVICE_ERROR) return EFI_DEVICE_ERROR;
  // A stray signature in the last block alone makes no table.
  return primary == EFI_NOT_FOUND ? EFI_NOT_FOUND : EFI_VOLUME_CORRUPTED;
}

}  // namespace sim
