#include "bootopt/option_numbers.h"

#include "bootopt/load_option.h"
#include "bootopt/orphan_mask.h"
#include "support/text.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT32 kFirstNumber = 1;

bool SameBytes(Bytes bytes, const void* other, UINTN size) {
  return bytes.size() == size && EqualMemory(bytes.data(), other, size);
}

// Attributes and the orphan mask, which change from boot to boot, do not count.
bool IsImageOf(const LoadOptionView& view, const BOOT_OPTION& option) {
  if (!option.Description || !option.FilePathList) {
    return false;
  }
  const Bytes path =
      BehindOrphanMask({reinterpret_cast<const std::byte*>(option.FilePathList.get()), option.FilePathListLength});
  return SameBytes(view.Description, option.Description.get(),
                   (TextLength(option.Description.get()) + 1) * sizeof(CHAR16)) &&
         SameBytes(BehindOrphanMask(view.FilePathList), path.data(), path.size()) &&
         SameBytes(view.OptionalData, option.OptionalData.get(), option.OptionalDataSize);
}

bool IsFirmwareImage(const LoadOptionView& view) {
  ByteReader data(view.OptionalData);
  return data.SkipIfEqual(kFirmwareMarker) || data.SkipIfEqual(kGroupMarker);
}

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

// A variable may go when the firmware made it, or when its option is in the list: numbered anew, that option is saved
// in another place. Any other belongs to somebody whose option was not loaded.
bool OptionNumberAllocator::MayOverwrite(UINT16 number) const {
  PoolBuffer image;
  const EFI_STATUS status = ReadVariable(BootVariableName(number), gEfiGlobalVariableGuid, image);
  if (EFI_ERROR(status)) {
    return status == EFI_NOT_FOUND;
  }
  LoadOptionView view;
  return ViewLoadOption(image.Bytes(), view) &&
         (IsFirmwareImage(view) ||
          AnyOption(list_, [&view](const BOOT_OPTION& option) { return IsImageOf(view, option); }));
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
