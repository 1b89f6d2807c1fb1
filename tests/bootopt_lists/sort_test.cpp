// The two orders, and the sort that must not change the place of equals.
#include <algorithm>
#include <random>

#include "tests/support/boot_lists_fixture.h"

namespace bds {
namespace {

using fake::OptionsOf;

class Sort : public fake::BootListsTest {
 protected:
  BOOT_OPTION& Add(UINT32 tag, UINT32 priority, UINT16 number = 1, bool header = false) {
    BOOT_OPTION& option = AddOption();
    option.Tag = tag;
    option.Priority = priority;
    option.BootOptionNumber = number;
    option.GroupHeader = header;
    return option;
  }
};

TEST_F(Sort, TagOrderPutsTheHeaderFirstAtEqualTags) {
  BOOT_OPTION* unassigned = &Add(0xFFFFFFFF, 1);
  BOOT_OPTION* late = &Add(5, 900);
  BOOT_OPTION* early = &Add(5, 100);
  BOOT_OPTION* header = &Add(5, 1000, 1, true);
  BOOT_OPTION* high = &Add(0x80000000, 0);
  BOOT_OPTION* first = &Add(0, 0xFFFFFFFF);
  SortList(BootOptionList, CompareByTag);
  EXPECT_EQ(OptionsOf(BootOptionList), (std::vector{first, header, early, late, high, unassigned}));
}

TEST_F(Sort, PriorityOrderAsksTheNumberBeforeTheHeader) {
  BOOT_OPTION* member = &Add(0, 256, 3);
  BOOT_OPTION* header = &Add(0, 256, 3, true);
  BOOT_OPTION* unnumbered = &Add(0, 256, 0xFFFF, true);
  BOOT_OPTION* smaller = &Add(0, 256, 2);
  BOOT_OPTION* before = &Add(9, 255, 0xFFFE);
  SortList(BootOptionList, CompareByPriority);
  EXPECT_EQ(OptionsOf(BootOptionList), (std::vector{before, smaller, header, member, unnumbered}));
}

// Many lengths, among them powers of two and their neighbours, against the standard library's stable sort.
TEST_F(Sort, AgreesWithAStableSortOnEveryLength) {
  std::mt19937 random(20);
  for (UINTN length = 0; length <= 67; ++length) {
    std::vector<BOOT_OPTION*> expected = OptionsOf(BootOptionList);
    while (expected.size() < length) {
      expected.push_back(&Add(0, 0));
    }
    for (BOOT_OPTION* option : expected) {
      option->Tag = static_cast<UINT32>(random() % 5);
      option->Priority = static_cast<UINT32>(random() % 3);
      option->GroupHeader = random() % 4 == 0;
    }
    std::stable_sort(expected.begin(), expected.end(),
                     [](const BOOT_OPTION* a, const BOOT_OPTION* b) { return CompareByTag(*a, *b) < 0; });
    SortList(BootOptionList, CompareByTag);
    ASSERT_EQ(OptionsOf(BootOptionList), expected) << length;
  }
}

}  // namespace
}  // namespace bds
