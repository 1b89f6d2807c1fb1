// BootOrder as it is saved: the numbers of the options that can be written, each once, and between them the numbers
// that could not be loaded.
#pragma once

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"

namespace bds {

class SavedOrder {
 public:
  // Takes the numbers of the list, which stands in priority order. An error when BootOrder was not read at loading and
  // cannot be read now, or memory runs out: an order made without what it holds would throw that away.
  [[nodiscard]] EFI_STATUS Build(const BOOT_OPTION_LIST& list);
  // Takes a number out again.
  void Drop(UINT16 number);
  // The variable's content.
  Bytes Content() const { return {reinterpret_cast<const std::byte*>(numbers_.get()), count_ * sizeof(UINT16)}; }

 private:
  PoolPtr<UINT16> numbers_;
  UINTN count_ = 0;
};

// True when saving writes the option: it is numbered and has a path of a length that a load option can say.
[[nodiscard]] bool IsSaved(const BOOT_OPTION& option);

}  // namespace bds
