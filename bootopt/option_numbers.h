// Numbers for new options: never one in use, by an option of the list or by a variable that is not one of its options.
#pragma once

#include "bootopt/boot_lists.h"

namespace bds {

class OptionNumberAllocator {
 public:
  // Starts behind the largest number of the list.
  explicit OptionNumberAllocator(const BOOT_OPTION_LIST& list);

  // The next free number: upwards from the start and, once 0xFFFE is passed, the lowest free one from 1 on.
  // kNoBootOptionNumber when none is free.
  [[nodiscard]] UINT16 Next();

 private:
  [[nodiscard]] bool IsFree(UINT16 number) const;

  const BOOT_OPTION_LIST& list_;
  PoolBuffer oldOrder_;  // the numbers that may be written anew, when no option kept its own
  bool renumbering_ = false;
  UINT32 next_ = 1;
  bool wrapped_ = false;
};

}  // namespace bds
