// Ownership of pool memory: one owner, one free.
#include "support/pool.h"

#include <gtest/gtest.h>

#include "tests/support/firmware.h"

namespace bds {
namespace {

TEST(PoolPtr, FreesOnceHoweverItIsPassedOn) {
  fake::Firmware firmware;
  {
    auto first = AllocateArray<UINT32>(4);
    ASSERT_TRUE(first);
    PoolPtr<UINT32> second = std::move(first);
    EXPECT_FALSE(first);  // NOLINT: a moved-from owner is empty
    PoolPtr<UINT32> third = AllocateArray<UINT32>(1);
    EXPECT_EQ(firmware.PoolBlocks(), 2U);
    third = std::move(second);
    EXPECT_EQ(firmware.PoolBlocks(), 1U) << "what was held is freed";
    third.reset();
    EXPECT_EQ(firmware.PoolBlocks(), 0U);
    *third.put() = static_cast<UINT32*>(AllocatePool(4));
  }
  EXPECT_EQ(firmware.PoolBlocks(), 0U);
}

TEST(PoolPtr, ReleaseHandsTheBlockOver) {
  fake::Firmware firmware;
  void* block = nullptr;
  {
    auto owner = AllocateArray<UINT8>(0);
    ASSERT_TRUE(owner) << "size 0 yields a block too";
    block = owner.release();
  }
  EXPECT_EQ(firmware.PoolBlocks(), 1U);
  FreePool(block);
  FreePool(nullptr);
}

TEST(Pool, ExhaustionAndOverflowYieldNull) {
  fake::Firmware firmware;
  firmware.FailAllocationAfter(0);
  EXPECT_FALSE(AllocateArray<UINT64>(4));
  EXPECT_FALSE(AllocateArray<UINT64>(~UINTN{0} / 4)) << "the product does not fit";
  const std::byte bytes[2] = {std::byte{1}, std::byte{2}};
  firmware.FailAllocationAfter(0);
  EXPECT_EQ(CopyBytes(bytes).Size, 0U);
  EXPECT_EQ(CopyBytes(bytes).Bytes()[1], std::byte{2});
  EXPECT_FALSE(CopyBytes({}).Data);
  EXPECT_EQ(static_cast<UINT8*>(PoolPtr<UINT8>(static_cast<UINT8*>(AllocateZeroPool(1))).get())[0], 0);
}

}  // namespace
}  // namespace bds
