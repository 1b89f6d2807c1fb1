// Names from GetNextVariableName come from NVRAM: their walk is bounded, and what is no Boot#### name is passed over.
#include "core/dump_nvram.h"

#include "bootopt/dumps/dumps.h"
#include "platform/unicode_collation.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kFirstNameSize = 80;  // bytes; grown when a name is longer
constexpr UINTN kMaxNameSize = 0x10000;
constexpr UINTN kMaxNames = 0x10000;
constexpr UINTN kBootNameSize = 18;  // bytes of "Boot####" with its NUL
constexpr UINTN kBootPrefixLength = 4;
constexpr CHAR16 kBootPattern[] = u"boot[0-9a-f][0-9a-f][0-9a-f][0-9a-f]";

bool DumpBootVariable(const CHAR16* name, const EFI_GUID& vendor) {
  PoolBuffer option;
  const EFI_STATUS status = ReadVariable(name, vendor, option);
  DebugPrint("Option size returned is 0x%x\n", option.Size);
  if (EFI_ERROR(status)) {
    return false;
  }
  DebugPrint("Option size is 0x%x\n", option.Size);
  DebugHexDump(option.Bytes());
  DumpLoadOption(option.Bytes(), false);
  return true;
}

void DumpOrderedOptions(Bytes order) {
  ByteReader reader(order);
  for (UINT16 number = 0; reader.Read(number);) {
    const NumberedName name = BootVariableName(number);
    DebugPrint("Boot option %a\n:", name.Text);
    if (!DumpBootVariable(name, gEfiGlobalVariableGuid)) {
      DebugPrint("%a:Cannot read Boot option %d\n", "DumpNvramOptions", number);
    }
  }
}

bool OrderHolds(Bytes order, UINT16 wanted) {
  ByteReader reader(order);
  for (UINT16 number = 0; reader.Read(number);) {
    if (number == wanted) {
      return true;
    }
  }
  return false;
}

UINT16 NumberOfName(const CHAR16* name) {
  UINT16 number = 0;
  for (const CHAR16* digit = name + kBootPrefixLength; *digit != 0; ++digit) {
    number = static_cast<UINT16>(number << 4 | HexDigitValue(*digit));
  }
  return number;
}

// Visits the names of all variables, one after the other.
class VariableNames {
 public:
  VariableNames() : name_(static_cast<CHAR16*>(AllocateZeroPool(kFirstNameSize))), capacity_(kFirstNameSize) {}

  // False at the end, when the pool is exhausted, and when the firmware hands out no end.
  [[nodiscard]] bool Next() {
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
  const CHAR16* Name() const { return name_.get(); }
  UINTN Size() const { return size_; }  // bytes, with the NUL
  const EFI_GUID& Vendor() const { return vendor_; }

 private:
  bool Grow(UINTN size) {
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

  PoolPtr<CHAR16> name_;
  UINTN capacity_;  // bytes
  UINTN size_ = 0;
  UINTN visited_ = 0;
  EFI_GUID vendor_{};
};

bool IsBootName(EFI_UNICODE_COLLATION_PROTOCOL& collation, const VariableNames& names) {
  return names.Size() == kBootNameSize && names.Name()[kBootNameSize / sizeof(CHAR16) - 1] == 0 &&
         TextLength(names.Name()) == kBootNameSize / sizeof(CHAR16) - 1 &&
         collation.MetaiMatch(&collation, names.Name(), kBootPattern) != FALSE;
}

void DumpUnorderedOptions(Bytes order) {
  auto* collation = LocateProtocol<EFI_UNICODE_COLLATION_PROTOCOL>();
  if (collation == nullptr) {
    return;
  }
  VariableNames names;
  while (names.Next()) {
    if (IsBootName(*collation, names) && !OrderHolds(order, NumberOfName(names.Name()))) {
      DebugPrint("!!!!!!!%a is not in the boot order!!!!!!!\n", names.Name());
      static_cast<void>(DumpBootVariable(names.Name(), names.Vendor()));
    }
  }
}

}  // namespace

void DumpNvramOptions() {
  PoolBuffer order;
  if (EFI_ERROR(ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order)) || order.Size == 0) {
    DebugPrint("error, no boot order!\n");
    return;
  }
  DebugPrint("Boot order:\n");
  DebugHexDump(order.Bytes());
  DumpOrderedOptions(order.Bytes());
  DumpUnorderedOptions(order.Bytes());
}

}  // namespace bds
