// The checks of a FAT boot sector (its BIOS parameter block) and of an ISO 9660 volume descriptor.
#include "sim/storage/volume_probe.h"

#include <array>
#include <bit>
#include <vector>

#include "sim/storage/little_endian.h"

namespace sim {
namespace {

bool IsFatBootSector(std::span<const std::byte> sector) {
  const auto byteAt = [&](std::size_t offset) { return std::to_integer<std::uint8_t>(sector[offset]); };
  if (byteAt(0) != 0xEB && byteAt(0) != 0xE9) return false;
  if (byteAt(510) != 0x55 || byteAt(511) != 0xAA) return false;
  const auto bytesPerSector = ReadLittle<std::uint16_t>(sector, 11);
  const auto sectorsPerCluster = byteAt(13);
  const auto reserved = ReadLittle<std::uint16_t>(sector, 14);
  const auto fats = byteAt(16);
  const bool sizesHold = bytesPerSector >= 512 && bytesPerSector <= 4096 && std::has_single_bit(bytesPerSector) &&
                         std::has_single_bit(sectorsPerCluster);
  const bool fatSized = ReadLittle<std::uint16_t>(sector, 22) != 0 || ReadLittle<std::uint32_t>(sector, 36) != 0;
  return sizesHold && reserved != 0 && (fats == 1 || fats == 2) && fatSized && byteAt(21) >= 0xF0;
}

}  // namespace

VolumeKind ProbeVolume(const BlockSource& volume) {
  std::array<std::byte, 512> sector;
  if (!EFI_ERROR(volume.Read(0, sector)) && IsFatBootSector(sector)) return VolumeKind::Fat;
  if (!EFI_ERROR(volume.Read(16 * 2048, sector)) && sector[0] == std::byte{1} &&
      std::memcmp(sector.data() + 1, "CD001", 5) == 0) {
    return VolumeKind::Iso9660;
  }
  return VolumeKind::None;
}

}  // namespace sim
