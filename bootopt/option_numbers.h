// Numbers for new options: never one in use, by an option of the list or by a variable that somebody else made.
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
  [[nodiscard]] bool MayOverwrite(UINT16 number) const;

  const BOOT_OPTION_LIST& list_;
  UINT32 next_ = 1;
  bool wrapped_ = false;
};

}  // namespace bds
