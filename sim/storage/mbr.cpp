// MBR partition tables (UEFI 2.10, 5.2) with their extended chain. A boot sector that is a file system's own ends with
// the same two bytes as an MBR and is told apart here.
#include <algorithm>

#include "sim/storage/little_endian.h"
#include "sim/storage/partitions.h"
#include "sim/storage/volume_probe.h"

namespace sim {
namespace {

constexpr std::size_t kTable = 446;
constexpr std::size_t kEntrySize = 16;
constexpr std::size_t kEntries = 4;
constexpr std::size_t kDiskSignature = 0x1B8;
constexpr std::uint32_t kFirstLogical = 5;
// Logical partitions of one chain. Each costs a read, and a chain may be as long as its maker wants.
constexpr std::uint32_t kMaximumLogical = 128;

constexpr std::uint8_t kExtended = 0x05;
constexpr std::uint8_t kExtendedByBlocks = 0x0F;
constexpr std::uint8_t kExtendedOfLinux = 0x85;
constexpr std::uint8_t kProtective = 0xEE;
constexpr std::uint8_t kEfiSystem = 0xEF;

struct Entry {
  std::uint8_t type;
  std::uint64_t start;
  std::uint64_t count;
};

Entry EntryAt(std::span<const std::byte> sector, std::size_t index) {
  const std::size_t at = kTable + kEntrySize * index;
  return {std::to_integer<std::uint8_t>(sector[at + 4]), ReadLittle<std::uint32_t>(sector, at + 8),
          ReadLittle<std::uint32_t>(sector, at + 12)};
}

bool IsExtended(const Entry& entry) {
  return entry.type == kExtended || entry.type == kExtendedByBlocks || entry.type == kExtendedOfLinux;
}

bool IsSigned(std::span<const std::byte> sector) {
  return sector[510] == std::byte{0x55} && sector[511] == std::byte{0xAA};
}

bool TableIsEmpty(std::span<const std::byte> sector) {
  return std::all_of(sector.begin() + kTable, sector.begin() + 510,
                     [](std::byte byte) { return byte == std::byte{0}; });
}

bool BootFlagsHold(std::span<const std::byte> sector) {
  for (std::size_t i = 0; i < kEntries; ++i) {
    if ((sector[kTable + kEntrySize * i] & std::byte{0x7F}) != std::byte{0}) return false;
  }
  return true;
}

class MbrReader {
 public:
  MbrReader(const BlockSource& medium, std::vector<Partition>& partitions)
      : medium_(medium), sector_(medium.BlockSize()), blocks_(medium.Size() / medium.BlockSize()), found_(partitions) {}

  EFI_STATUS Read() {
    if (EFI_ERROR(ReadSector(0))) return EFI_DEVICE_ERROR;
    if (!IsSigned(sector_) || TableIsEmpty(sector_) || !BootFlagsHold(sector_)) return EFI_NOT_FOUND;
    std::memcpy(signature_.data(), sector_.data() + kDiskSignature, signature_.size());
    const std::vector<std::byte> table = sector_;
    for (std::size_t i = 0; i < kEntries; ++i) {
      const Entry entry = EntryAt(table, i);
      if (!IsExtended(entry)) Take(entry, static_cast<std::uint32_t>(i) + 1);
    }
    for (std::size_t i = 0; i < kEntries; ++i) {
      if (const Entry entry = EntryAt(table, i); IsExtended(entry)) ReadChain(entry);
    }
    return found_.empty() ? EFI_NOT_FOUND : EFI_SUCCESS;
  }

 private:
  EFI_STATUS ReadSector(std::uint64_t block) { return medium_.Read(block * medium_.BlockSize(), sector_); }

  // A link of the chain lies behind the one before it, so that no chain turns in a circle.
  void ReadChain(const Entry& extended) {
    std::uint64_t link = extended.start;
    for (std::uint32_t i = 0; i < kMaximumLogical && link != 0 && link < blocks_; ++i) {
      if (EFI_ERROR(ReadSector(link)) || !IsSigned(sector_)) return;
      Entry logical = EntryAt(sector_, 0);
      if (logical.start != 0 && !IsExtended(logical)) {
        logical.start += link;
        Take(logical, kFirstLogical + logicals_++);
      }
      const Entry next = EntryAt(sector_, 1);
      if (!IsExtended(next) || extended.start + next.start <= link) return;
      link = extended.start + next.start;
    }
  }

  void Take(const Entry& entry, std::uint32_t number) {
    const bool inside = entry.start != 0 && entry.start < blocks_ && entry.count <= blocks_ - entry.start;
    if (entry.type == 0 || entry.type == kProtective || entry.count == 0 || !inside) return;
    Partition partition{.scheme = PartitionScheme::Mbr,
                        .number = number,
                        .startBlock = entry.start,
                        .blockCount = entry.count,
                        .mbrType = entry.type,
                        .efiSystem = entry.type == kEfiSystem};
    std::copy(signature_.begin(), signature_.end(), partition.signature.begin());
    found_.push_back(partition);
  }

  const BlockSource& medium_;
  std::vector<std::byte> sector_;
  std::uint64_t blocks_;
  std::array<std::uint8_t, 4> signature_{};
  std::uint32_t logicals_ = 0;
  std::vector<Partition>& found_;
};

}  // namespace

EFI_STATUS ReadMbrPartitions(const BlockSource& medium, std::vector<Partition>& partitions) {
  if (ProbeVolume(medium) == VolumeKind::Fat) return EFI_NOT_FOUND;
  return MbrReader(medium, partitions).Read();
}

bool HasProtectiveMbr(const BlockSource& medium) {
  std::vector<std::byte> sector(medium.BlockSize());
  if (EFI_ERROR(medium.Read(0, sector)) || !IsSigned(sector)) return false;
  for (std::size_t i = 0; i < kEntries; ++i) {
    if (EntryAt(sector, i).type == kProtective) return true;
  }
  return false;
}

}  // namespace sim
