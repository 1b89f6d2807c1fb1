// EFI boot images of a disc ("El Torito" Bootable CD-ROM Format 1.0; UEFI 2.10, 13.3.2.1): the boot record names the
// boot catalog, and its entries for the EFI platform name the images.
#include <algorithm>
#include <numeric>

#include "sim/storage/little_endian.h"
#include "sim/storage/partitions.h"

namespace sim {
namespace {

constexpr std::size_t kSector = 2048;
constexpr std::size_t kEntrySize = 32;
constexpr std::uint64_t kFirstDescriptor = 16;
constexpr std::uint64_t kMaximumDescriptors = 32;
constexpr std::size_t kCatalogSectors = 4;  // 256 entries
constexpr std::uint8_t kEfiPlatform = 0xEF;
constexpr std::uint8_t kBootable = 0x88;

struct VolumeFacts {
  std::uint32_t catalogSector = 0;
  std::uint32_t volumeSectors = 0;  // of the primary volume descriptor, 0: none seen
};

bool HasText(std::span<const std::byte> sector, std::size_t offset, std::string_view text) {
  return std::memcmp(sector.data() + offset, text.data(), text.size()) == 0;
}

EFI_STATUS ReadDescriptors(const BlockSource& medium, VolumeFacts& facts) {
  std::array<std::byte, kSector> sector;
  for (std::uint64_t i = kFirstDescriptor; i < kFirstDescriptor + kMaximumDescriptors; ++i) {
    if (EFI_ERROR(medium.Read(i * kSector, sector)) || !HasText(sector, 1, "CD001")) break;
    const auto type = std::to_integer<std::uint8_t>(sector[0]);
    if (type == 0xFF) break;
    if (type == 1) facts.volumeSectors = ReadLittle<std::uint32_t>(sector, 80);
    if (type == 0 && HasText(sector, 7, "EL TORITO SPECIFICATION")) {
      facts.catalogSector = ReadLittle<std::uint32_t>(sector, 0x47);
    }
  }
  return facts.catalogSector != 0 ? EFI_SUCCESS : EFI_NOT_FOUND;
}

bool ValidationEntryHolds(std::span<const std::byte> entry) {
  std::uint16_t sum = 0;
  for (std::size_t i = 0; i < kEntrySize; i += 2) {
    sum = static_cast<std::uint16_t>(sum + ReadLittle<std::uint16_t>(entry, i));
  }
  return sum == 0 && entry[0] == std::byte{1} && entry[30] == std::byte{0x55} && entry[31] == std::byte{0xAA};
}

// Sectors of 512 bytes that an entry's image takes. No emulation with a count of 0 or 1 reaches to the volume's end;
// the floppy types have their fixed sizes.
std::uint64_t ImageSize(std::span<const std::byte> entry, std::uint64_t bytesToEnd) {
  static constexpr std::array<std::uint64_t, 4> kFloppyBytes{0, 1'228'800, 1'474'560, 2'949'120};
  const auto media = std::to_integer<std::uint8_t>(entry[1]) & 0x0F;
  if (media >= 1 && media <= 3) return std::min(kFloppyBytes[media], bytesToEnd);
  const std::uint16_t count = ReadLittle<std::uint16_t>(entry, 6);
  return count <= 1 ? bytesToEnd : std::uint64_t{count} * 512;
}

class CatalogReader {
 public:
  CatalogReader(const BlockSource& medium, const VolumeFacts& facts, std::vector<Partition>& partitions)
      : medium_(medium), partitions_(partitions) {
    const std::uint64_t volume = std::uint64_t{facts.volumeSectors} * kSector;
    end_ = volume == 0 ? medium.Size() : std::min(volume, medium.Size());
  }

  void Take(std::span<const std::byte> entry, std::uint8_t platform) {
    const std::uint32_t number = next_++;
    if (platform != kEfiPlatform || std::to_integer<std::uint8_t>(entry[0]) != kBootable) return;
    const std::uint64_t start = std::uint64_t{ReadLittle<std::uint32_t>(entry, 8)} * kSector;
    if (start == 0 || start >= end_) return;
    const std::uint32_t block = medium_.BlockSize();
    if (start % block != 0) return;
    const std::uint64_t blocks = (std::min(ImageSize(entry, end_ - start), end_ - start) + block - 1) / block;
    partitions_.push_back({.scheme = PartitionScheme::ElTorito,
                           .number = number,
                           .startBlock = start / block,
                           .blockCount = std::max<std::uint64_t>(blocks, 1)});
  }

 private:
  const BlockSource& medium_;
  std::vector<Partition>& partitions_;
  std::uint64_t end_ = 0;
  std::uint32_t next_ = 0;
};

}  // namespace

EFI_STATUS ReadElToritoImages(const BlockSource& medium, std::vector<Partition>& partitions) {
  VolumeFacts facts;
  if (const EFI_STATUS status = ReadDescriptors(medium, facts); EFI_ERROR(status)) return status;
  std::vector<std::byte> catalog(kSector * kCatalogSectors);
  const std::uint64_t start = std::uint64_t{facts.catalogSector} * kSector;
  if (start >= medium.Size()) return EFI_VOLUME_CORRUPTED;
  catalog.resize(std::min<std::uint64_t>(catalog.size(), (medium.Size() - start) / kSector * kSector));
  if (EFI_ERROR(medium.Read(start, catalog))) return EFI_DEVICE_ERROR;
  const auto entryAt = [&](std::size_t index) {
    return std::span<const std::byte>(catalog).subspan(index * kEntrySize, kEntrySize);
  };
  const std::size_t entries = catalog.size() / kEntrySize;
  if (entries < 2 || !ValidationEntryHolds(entryAt(0))) return EFI_VOLUME_CORRUPTED;
  CatalogReader reader(medium, facts, partitions);
  reader.Take(entryAt(1), std::to_integer<std::uint8_t>(entryAt(0)[1]));
  std::size_t index = 2;
  while (index < entries) {
    const auto header = entryAt(index++);
    const auto kind = std::to_integer<std::uint8_t>(header[0]);
    if (kind != 0x90 && kind != 0x91) break;
    const auto platform = std::to_integer<std::uint8_t>(header[1]);
    const std::uint16_t members = ReadLittle<std::uint16_t>(header, 2);
    for (std::uint16_t i = 0; i < members && index < entries; ++i) {
      const auto entry = entryAt(index++);
      reader.Take(entry, platform);
      const bool extended = (std::to_integer<std::uint8_t>(entry[1]) & 0x20) != 0;
      while (extended && index < entries && entryAt(index)[0] == std::byte{0x44}) {
        const bool more = (std::to_integer<std::uint8_t>(entryAt(index++)[1]) & 0x20) != 0;
        if (!more) break;
      }
    }
    if (kind == 0x91) break;
  }
  return partitions.empty() ? EFI_NOT_FOUND : EFI_SUCCESS;
}

}  // namespace sim
