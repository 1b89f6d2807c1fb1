// A walk over the names of all variables. They come from NVRAM: the walk is bounded, and each name is checked.
#pragma once

#include "platform/unicode_collation.h"
#include "support/byte_reader.h"
#include "support/pool.h"

namespace bds {

// "Boot####" without its NUL.
inline constexpr UINTN kBootNameLength = 8;

class VariableNames {
 public:
  VariableNames();

  // False at the end, when the pool is exhausted, and when the firmware hands out no end.
  [[nodiscard]] bool Next();

  const CHAR16* Name() const { return name_.get(); }
  const EFI_GUID& Vendor() const { return vendor_; }

  // True for "Boot" and four hexadecimal digits, all in either case.
  [[nodiscard]] bool IsBootOption(EFI_UNICODE_COLLATION_PROTOCOL& collation) const;
  // The number in such a name.
  [[nodiscard]] UINT16 OptionNumber() const;

 private:
  bool Grow(UINTN size);

  PoolPtr<CHAR16> name_;
  UINTN capacity_;  // bytes
  UINTN size_ = 0;  // bytes of the name at hand, with its NUL
  UINTN visited_ = 0;
  EFI_GUID vendor_{};
};

// The place of the number in a list of numbers such as BootOrder, from 0; false when it is not in it.
[[nodiscard]] bool FindInOrder(Bytes order, UINT16 number, UINTN& index);

}  // namespace bds
