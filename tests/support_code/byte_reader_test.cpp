// Bounded reading and writing: exact, short and long.
#include "support/byte_reader.h"

#include <gtest/gtest.h>

#include <array>

namespace bds {
namespace {

constexpr std::array<std::byte, 6> kSix{std::byte{1}, std::byte{2}, std::byte{3},
                                        std::byte{4}, std::byte{5}, std::byte{6}};

TEST(ByteReader, ReadsLittleEndianUpToTheLastByte) {
  ByteReader reader(kSix);
  UINT16 word = 0;
  UINT32 dword = 0;
  ASSERT_TRUE(reader.Read(word));
  ASSERT_TRUE(reader.Read(dword));
  EXPECT_EQ(word, 0x0201);
  EXPECT_EQ(dword, 0x06050403U);
  EXPECT_EQ(reader.Remaining(), 0U);
}

TEST(ByteReader, AReadPastTheEndFailsAndMovesNothing) {
  ByteReader reader(kSix);
  UINT64 quad = 42;
  Bytes taken;
  EXPECT_FALSE(reader.Read(quad));
  EXPECT_EQ(quad, 42U);
  EXPECT_FALSE(reader.Take(7, taken));
  EXPECT_FALSE(reader.Skip(~UINTN{0})) << "no overflow";
  EXPECT_EQ(reader.Position(), 0U);
  EXPECT_TRUE(reader.Take(6, taken));
  EXPECT_FALSE(reader.Skip(1));
  EXPECT_TRUE(reader.Skip(0));
}

TEST(ByteReader, SkipIfEqualNeedsAllBytes) {
  ByteReader reader(Bytes(kSix).first(3));
  EXPECT_FALSE(reader.SkipIfEqual(Bytes(kSix).first(4)));
  EXPECT_FALSE(reader.SkipIfEqual(Bytes(kSix).subspan(1, 2)));
  EXPECT_TRUE(reader.SkipIfEqual(Bytes(kSix).first(2)));
  EXPECT_EQ(reader.Remaining(), 1U);
}

TEST(ByteWriter, AnOverflowWritesNothingAndIsRemembered) {
  std::array<std::byte, 5> room{};
  ByteWriter writer(room);
  writer.Write(UINT32{0x04030201});
  EXPECT_FALSE(writer.Overflowed());
  writer.Write(UINT16{0xFFFF});
  EXPECT_TRUE(writer.Overflowed());
  EXPECT_EQ(writer.Position(), 4U);
  EXPECT_EQ(room[4], std::byte{0});
}

}  // namespace
}  // namespace bds
