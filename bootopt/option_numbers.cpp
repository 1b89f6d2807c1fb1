#include "bootopt/option_numbers.h"

#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT32 kFirstNumber = 1;

bool Contains(Bytes order, UINT16 number) {
  for (ByteReader reader(order); reader.Remaining() >= sizeof(UINT16);) {
    UINT16 listed = 0;
    if (reader.Read(listed) && listed == number) {
      return true;
    }
  }
  return false;
}

bool IsListed(const BOOT_OPTION_LIST& list, UINT16 number) {
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    if (option->BootOptionNumber == number) {
      return true;
    }
  }
  return false;
}

}  // namespace

OptionNumberAllocator::OptionNumberAllocator(const BOOT_OPTION_LIST& list) : list_(list) {
  UINT32 largest = 0;
  renumbering_ = true;
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    if (option->BootOptionNumber == kNoBootOptionNumber) {
      continue;
    }
    renumbering_ = false;
    largest = option->BootOptionNumber > largest ? option->BootOptionNumber : largest;
  }
  next_ = largest + 1;
  if (renumbering_) {
    static_cast<void>(ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, oldOrder_));
  }
}

// When every option is numbered anew, the variables in the old order are these options' own earlier ones and are
// overwritten; any other variable that exists belongs to somebody else.
bool OptionNumberAllocator::IsFree(UINT16 number) const {
  if (IsListed(list_, number)) {
    return false;
  }
  return (renumbering_ && Contains(oldOrder_.Bytes(), number)) ||
         !VariableExists(BootVariableName(number), gEfiGlobalVariableGuid);
}

UINT16 OptionNumberAllocator::Next() {
  for (;; ++next_) {
    if (next_ >= kNoBootOptionNumber) {
      if (wrapped_) {
        return kNoBootOptionNumber;
      }
      wrapped_ = true;
      next_ = kFirstNumber;
    }
    const auto number = static_cast<UINT16>(next_);
    if (IsFree(number)) {
      ++next_;
      return number;
    }
  }
}

}  // namespace bds
