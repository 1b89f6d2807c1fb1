#include "bootopt/option_numbers.h"

#include "bootopt/load_option.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT32 kFirstNumber = 1;

template <typename Predicate>
bool AnyOption(const BOOT_OPTION_LIST& list, Predicate predicate) {
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    if (predicate(*option)) {
      return true;
    }
  }
  return false;
}

}  // namespace

OptionNumberAllocator::OptionNumberAllocator(const BOOT_OPTION_LIST& list) : list_(list) {
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    const UINT32 number = option->BootOptionNumber;
    if (number != kNoBootOptionNumber && number >= next_) {
      next_ = number + 1;
    }
  }
}

bool OptionNumberAllocator::IsFree(UINT16 number) const {
  return !AnyOption(list_, [number](const BOOT_OPTION& option) { return option.BootOptionNumber == number; }) &&
         !IsUnloadedOption(number) && MayOverwrite(number);
}

// A variable may go when an option of the list was loaded from it, which is then saved in another place, or when the
// firmware made it for an option that no order lists any more. Any other belongs to somebody else, be it the twin of a
// listed one, or was not loaded.
bool OptionNumberAllocator::MayOverwrite(UINT16 number) const {
  if (AnyOption(list_, [number](const BOOT_OPTION& option) { return option.StoredNumber == number; })) {
    return true;
  }
  PoolBuffer image;
  const EFI_STATUS status = ReadVariable(BootVariableName(number), gEfiGlobalVariableGuid, image);
  if (EFI_ERROR(status)) {
    return status == EFI_NOT_FOUND;
  }
  LoadOptionView view;
  return EveryUnloadedOptionIsKnown() && ViewLoadOption(image.Bytes(), view) && IsFirmwareData(view.OptionalData);
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
