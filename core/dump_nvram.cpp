#include "core/dump_nvram.h"

#include "bootopt/dumps/dumps.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/variable_names.h"
#include "support/variables.h"

namespace bds {
namespace {

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

void DumpUnorderedOptions(Bytes order) {
  auto* collation = LocateProtocol<EFI_UNICODE_COLLATION_PROTOCOL>();
  if (collation == nullptr) {
    return;
  }
  VariableNames names;
  while (names.Next()) {
    UINTN index = 0;
    if (names.IsBootOption(*collation) && !FindInOrder(order, names.OptionNumber(), index)) {
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
