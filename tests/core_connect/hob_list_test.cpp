// The hand-off block walker on good and broken lists.
#include "core/hob_list.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "sim/firmware/services/hob_list.h"

namespace {

constexpr EFI_GUID kA{1, 0, 0, {}};
constexpr EFI_GUID kB{2, 0, 0, {}};

TEST(HobWalker, FindsTheFirstBlockOfTheName) {
  sim::HobList list(BOOT_ON_FLASH_UPDATE);
  const std::byte one[8] = {std::byte{1}};
  const std::byte two[16] = {std::byte{2}};
  ASSERT_TRUE(list.AddGuid(kA, one));
  ASSERT_TRUE(list.AddGuid(kB, two));
  ASSERT_TRUE(list.AddGuid(kB, one));
  const void* hobs = list.Build();
  EFI_BOOT_MODE mode = 0;
  EXPECT_TRUE(bds::ReadBootMode(hobs, mode));
  EXPECT_EQ(mode, BOOT_ON_FLASH_UPDATE);
  bds::Bytes data;
  ASSERT_TRUE(bds::FindGuidHob(hobs, kB, data));
  EXPECT_EQ(data.size(), 16U);
  EXPECT_EQ(data[0], std::byte{2});
  EXPECT_FALSE(bds::FindGuidHob(hobs, EFI_GUID{3, 0, 0, {}}, data));
}

// The list at an address that can be damaged.
class BrokenHobList : public ::testing::Test {
 protected:
  BrokenHobList() {
    const std::byte data[8] = {};
    EXPECT_TRUE(list.AddGuid(kA, data));
    list.Build();
    bytes.assign(list.Bytes().begin(), list.Bytes().end());
  }
  void Put16(std::size_t at, UINT16 value) { std::memcpy(bytes.data() + at, &value, sizeof(value)); }
  bool Finds() {
    bds::Bytes data;
    return bds::FindGuidHob(bytes.data(), kA, data);
  }
  bool ReadsMode() {
    EFI_BOOT_MODE mode = 0;
    return bds::ReadBootMode(bytes.data(), mode);
  }
  sim::HobList list;
  std::vector<std::byte> bytes;
};

TEST_F(BrokenHobList, ABlockShorterThanItsHeaderEndsTheWalk) {
  ASSERT_TRUE(Finds());
  for (const UINT16 length : {UINT16{0}, UINT16{7}}) {
    Put16(2, length);
    EXPECT_FALSE(Finds());
    EXPECT_FALSE(ReadsMode());
  }
}

TEST_F(BrokenHobList, AGuidBlockTooShortForItsNameIsPassedOver) {
  Put16(sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + 2, 8);
  Put16(sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + 8, EFI_HOB_TYPE_END_OF_HOB_LIST);
  EXPECT_FALSE(Finds());
}

TEST_F(BrokenHobList, AListThatBeginsOtherwiseHasNoBootMode) {
  EXPECT_TRUE(ReadsMode());
  Put16(0, EFI_HOB_TYPE_UNUSED);
  EXPECT_FALSE(ReadsMode());
}

}  // namespace
