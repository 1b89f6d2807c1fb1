#include "sim/bus/option_rom.h"

#include <array>
#include <cstring>
#include <numeric>

namespace sim {
namespace {

constexpr std::size_t kUnit = 512;  // image lengths count these
constexpr std::uint8_t kLegacyCode = 0;
constexpr std::uint8_t kLastImage = 0x80;
constexpr std::uint8_t kFarReturn = 0xCB;

#pragma pack(push, 1)
struct RomHeader {
  std::uint8_t signature[2];  // 55 AA
  std::uint8_t units;
  std::uint8_t entry[21];  // the legacy BIOS calls it
  std::uint16_t dataOffset;
};
struct RomData {
  char signature[4];  // "PCIR"
  std::uint16_t vendorId;
  std::uint16_t deviceId;
  std::uint16_t deviceListOffset;
  std::uint16_t length;
  std::uint8_t revision;
  std::uint8_t classCode[3];
  std::uint16_t imageUnits;
  std::uint16_t codeRevision;
  std::uint8_t codeType;
  std::uint8_t indicator;
  std::uint16_t runTimeUnits;
};
#pragma pack(pop)
static_assert(sizeof(RomHeader) == 0x1A);
static_assert(sizeof(RomData) == 0x18);
constexpr std::size_t kDataOffset = 0x1C;

template <typename Record>
bool Read(std::span<const std::byte> rom, std::size_t at, Record& record) {
  if (at > rom.size() || rom.size() - at < sizeof(record)) return false;
  std::memcpy(&record, rom.data() + at, sizeof(record));
  return true;
}

}  // namespace

std::vector<std::byte> LegacyOptionRom(std::uint16_t vendorId, std::uint16_t deviceId, std::uint32_t classCode) {
  RomHeader header{.signature = {0x55, 0xAA}, .units = 1, .entry = {kFarReturn}, .dataOffset = kDataOffset};
  RomData data{.signature = {'P', 'C', 'I', 'R'},
               .vendorId = vendorId,
               .deviceId = deviceId,
               .deviceListOffset = 0,
               .length = sizeof(RomData),
               .revision = 3,
               .classCode = {static_cast<std::uint8_t>(classCode), static_cast<std::uint8_t>(classCode >> 8),
                             static_cast<std::uint8_t>(classCode >> 16)},
               .imageUnits = 1,
               .codeRevision = 1,
               .codeType = kLegacyCode,
               .indicator = kLastImage,
               .runTimeUnits = 1};
  std::vector<std::byte> rom(kUnit);
  std::memcpy(rom.data(), &header, sizeof(header));
  std::memcpy(rom.data() + kDataOffset, &data, sizeof(data));
  const auto sum = std::accumulate(rom.begin(), rom.end(), 0U, [](unsigned total, std::byte byte) {
    return total + std::to_integer<unsigned>(byte);
  });
  rom.back() = static_cast<std::byte>(0x100 - (sum & 0xFF));  // all bytes together give zero
  return rom;
}

bool HasLegacyImage(std::span<const std::byte> rom) {
  for (std::size_t at = 0; at < rom.size();) {
    RomHeader header{};
    RomData data{};
    if (!Read(rom, at, header) || header.signature[0] != 0x55 || header.signature[1] != 0xAA ||
        !Read(rom, at + header.dataOffset, data) || std::memcmp(data.signature, "PCIR", 4) != 0) {
      return false;
    }
    if (data.codeType == kLegacyCode) return true;
    if ((data.indicator & kLastImage) != 0 || data.imageUnits == 0) return false;
    at += data.imageUnits * kUnit;
  }
  return false;
}

}  // namespace sim
