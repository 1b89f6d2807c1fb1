// Option ROM images: what is made is found again, and bytes that are none end the search within the ROM.
#include "sim/bus/option_rom.h"

#include <gtest/gtest.h>

#include <numeric>

namespace sim {
namespace {

using Rom = std::vector<std::byte>;

constexpr std::size_t kData = 0x1C;
constexpr std::size_t kImageUnits = kData + 0x10;
constexpr std::size_t kCodeType = kData + 0x14;
constexpr std::size_t kIndicator = kData + 0x15;

Rom Legacy() { return LegacyOptionRom(0x8086, 0x1234, 0x030000); }
// An image for UEFI that another one follows.
Rom Efi() {
  Rom rom = Legacy();
  rom[kCodeType] = std::byte{3};
  rom[kIndicator] = std::byte{0};
  return rom;
}
Rom Joined(Rom first, const Rom& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

struct Damage {
  const char* what;
  std::size_t offset;
  std::uint8_t value;
};

TEST(OptionRom, ADamagedImageEndsTheSearch) {
  constexpr Damage kDamages[] = {
      {"signature", 0, 0x54},        {"data offset beyond the end", 0x19, 0xFF}, {"data signature", kData, 'p'},
      {"no length", kImageUnits, 0}, {"longer than the ROM", kImageUnits, 0xFF}, {"last image", kIndicator, 0x80},
  };
  for (const Damage& damage : kDamages) {
    Rom rom = Joined(Efi(), Legacy());
    rom[damage.offset] = std::byte{damage.value};
    EXPECT_FALSE(HasLegacyImage(rom)) << damage.what;
  }
  const Rom whole = Legacy();
  for (std::size_t size = 0; size < kData + 0x18; ++size) {
    EXPECT_FALSE(HasLegacyImage(std::span(whole).first(size))) << size;
  }
}

}  // namespace
}  // namespace sim
