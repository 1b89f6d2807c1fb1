// Variables read into buffers that grow.
#include "support/variables.h"

#include <gtest/gtest.h>

#include "tests/support/firmware.h"

namespace bds {
namespace {

TEST(Variables, OneBufferServesManyReads) {
  fake::Firmware firmware;
  firmware.Put(u"Small", {1, 2});
  firmware.Put(u"Large", fake::Data(100, 7));
  PoolBuffer buffer;
  UINTN capacity = 0;
  ASSERT_EQ(ReadVariableIntoBuffer(u"Large", gEfiGlobalVariableGuid, nullptr, capacity, buffer), EFI_SUCCESS);
  EXPECT_EQ(buffer.Size, 100U);
  const std::byte* block = buffer.Data.get();
  ASSERT_EQ(ReadVariableIntoBuffer(u"Small", gEfiGlobalVariableGuid, nullptr, capacity, buffer), EFI_SUCCESS);
  EXPECT_EQ(buffer.Size, 2U);
  EXPECT_EQ(buffer.Data.get(), block) << "the larger block is kept";
  EXPECT_EQ(ReadVariableIntoBuffer(u"None", gEfiGlobalVariableGuid, nullptr, capacity, buffer), EFI_NOT_FOUND);
  EXPECT_EQ(buffer.Size, 0U);
  EXPECT_EQ(firmware.PoolBlocks(), 1U);
}

TEST(Variables, AnExhaustedPoolIsReported) {
  fake::Firmware firmware;
  firmware.Put(u"Small", {1, 2});
  PoolBuffer buffer;
  firmware.FailAllocationAfter(0);
  EXPECT_EQ(ReadVariable(u"Small", gEfiGlobalVariableGuid, buffer), EFI_OUT_OF_RESOURCES);
  EXPECT_TRUE(buffer.Bytes().empty());
}

}  // namespace
}  // namespace bds
