// The memory space: what the standard refuses.
#include <gtest/gtest.h>

#include "sim/firmware/services/memory_space.h"

namespace sim {
namespace {

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

TEST(MemorySpace, RefusesWhatTheStandardRefuses) {
  MemorySpace space;
  ASSERT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, kGiB, kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, kGiB + 1, 8), EFI_ACCESS_DENIED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 2 * kGiB - 1, 1, 8), EFI_ACCESS_DENIED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, 0, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeNonExistent, 0, 1, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, MemorySpace::kEnd - 1, 2, 8), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, kGiB, ~std::uint64_t{0}, 8), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Remove(0, kGiB + 1), EFI_NOT_FOUND);
  EXPECT_EQ(space.Remove(3 * kGiB, 1), EFI_NOT_FOUND);
  EXPECT_EQ(space.SetAttributes(kGiB, kGiB, 16), EFI_UNSUPPORTED);
  EXPECT_EQ(space.SetAttributes(kGiB, kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.SetCapabilities(kGiB, kGiB, 0), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Map().size(), 3u);
}

}  // namespace
}  // namespace sim
