// Real-mode pointers: what lies outside legacy memory is never read.
#include "support/legacy_memory.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/firmware.h"

namespace bds {
namespace {

struct PointerCase {
  UINT16 Segment;
  UINT16 Offset;
  UINTN Maximum;
  UINTN Size;
};
constexpr PointerCase kPointers[] = {
    {0, 0, 32, 0},             // null
    {0, 0x0FFF, 32, 0},        // the first page
    {0x00FF, 0x000F, 32, 0},   // its last byte
    {0, 0x1000, 32, 32},       // the first byte that counts
    {0xF000, 0xFFFF, 32, 32},  // the last byte below 1 MiB and what follows
    {0xFFFF, 0xFFFF, 32, 1},   // the last byte that a pointer can name
    {0xFFFF, 0xFFF0, 32, 16},  // cut at the end
    {0xE000, 0x0000, 0, 0},    // nothing asked for
};

TEST(LegacyMemory, BoundsEveryPointer) {
  for (const PointerCase& pointer : kPointers) {
    EXPECT_EQ(LegacyBytes(pointer.Segment, pointer.Offset, pointer.Maximum).size(), pointer.Size)
        << std::hex << pointer.Segment << ":" << pointer.Offset;
  }
}

TEST(LegacyMemory, AStringEndsAtItsNulItsLimitOrTheEndOfMemory) {
  fake::Firmware firmware;
  firmware.WriteLegacy(0xE0010, std::string("disk\0more", 9));
  const auto text = [](UINT16 segment, UINT16 offset, UINTN maximum) {
    const auto found = LegacyString(segment, offset, maximum);
    return std::string(found.begin(), found.end());
  };
  EXPECT_EQ(text(0xE001, 0, 32), "disk");
  EXPECT_EQ(text(0xE000, 0x10, 32), "disk") << "the same byte by another segment";
  EXPECT_EQ(text(0xE001, 0, 2), "di");
  EXPECT_EQ(text(0xE001, 4, 32), "");
  firmware.WriteLegacy(0x10FFE0, std::string(16, 'z'));
  EXPECT_EQ(text(0xFFFF, 0xFFF0, 255), std::string(16, 'z'));
  EXPECT_EQ(text(0, 0, 32), "");
}

}  // namespace
}  // namespace bds
