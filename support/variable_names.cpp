#include "support/variable_names.h"

#include "support/services.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINTN kFirstNameSize = 80;  // bytes; grown when a name is longer
constexpr UINTN kMaxNameSize = 0x10000;
constexpr UINTN kMaxNames = 0x10000;
constexpr UINTN kBootPrefixLength = 4;
constexpr CHAR16 kBootPattern[] = u"boot[0-9a-f][0-9a-f][0-9a-f][0-9a-f]";

}  // namespace

VariableNames::VariableNames()
    : name_(static_cast<CHAR16*>(AllocateZeroPool(kFirstNameSize))), capacity_(kFirstNameSize) {}

bool VariableNames::Next() {
  if (!name_ || ++visited_ > kMaxNames) {
    return false;
  }
  size_ = capacity_;
  EFI_STATUS status = RuntimeServices()->GetNextVariableName(&size_, name_.get(), &vendor_);
  if (status == EFI_BUFFER_TOO_SMALL && Grow(size_)) {
    status = RuntimeServices()->GetNextVariableName(&size_, name_.get(), &vendor_);
  }
  return !EFI_ERROR(status);
}

bool VariableNames::IsBootOption(EFI_UNICODE_COLLATION_PROTOCOL& collation) const {
  return size_ == (kBootNameLength + 1) * sizeof(CHAR16) && name_[kBootNameLength] == 0 &&
         TextLength(name_.get()) == kBootNameLength &&
         collation.MetaiMatch(&collation, name_.get(), kBootPattern) != FALSE;
}

UINT16 VariableNames::OptionNumber() const {
  UINT16 number = 0;
  for (UINTN at = kBootPrefixLength; at < kBootNameLength; ++at) {
    number = static_cast<UINT16>(number << 4 | HexDigitValue(name_[at]));
  }
  return number;
}

bool VariableNames::Grow(UINTN size) {
  if (size <= capacity_ || size > kMaxNameSize) {
    return false;
  }
  PoolPtr<CHAR16> larger(static_cast<CHAR16*>(AllocateZeroPool(size)));
  if (!larger) {
    return false;
  }
  CopyMemory(larger.get(), name_.get(), capacity_);
  name_ = std::move(larger);
  capacity_ = size;
  size_ = size;
  return true;
}

bool FindInOrder(Bytes order, UINT16 number, UINTN& index) {
  ByteReader reader(order);
  index = 0;
  for (UINT16 listed = 0; reader.Read(listed); ++index) {
    if (listed == number) {
      return true;
    }
  }
  return false;
}

}  // namespace bds
