// The step that deletes the Boot#### variables that no order names.
#include "bmc/steps.h"
#include "bootopt/boot_lists.h"
#include "support/debug_print.h"
#include "support/linked_list.h"
#include "support/protocols.h"
#include "support/variable_names.h"
#include "support/variables.h"

namespace bds {
namespace {

struct FoundOption {
  FoundOption* Next = nullptr;
  FoundOption* Previous = nullptr;
  CHAR16 Name[kBootNameLength + 1] = {};  // as it is stored: the digits may be in either case
  UINT16 Number = 0;
};
using FoundOptions = LIST_HEADER<FoundOption>;

// All names first: a variable that is deleted on the way is no place to go on from. Without memory the rest is left to
// the next boot.
void CollectBootOptions(EFI_UNICODE_COLLATION_PROTOCOL& collation, FoundOptions& found) {
  VariableNames names;
  while (names.Next()) {
    if (!EqualMemory(&names.Vendor(), &gEfiGlobalVariableGuid, sizeof(EFI_GUID)) || !names.IsBootOption(collation)) {
      continue;
    }
    FoundOption* option = AppendNew(found);
    if (option == nullptr) {
      return;
    }
    CopyMemory(option->Name, names.Name(), sizeof(option->Name));
    option->Number = names.OptionNumber();
  }
}

void DeleteWhenUnlisted(const FoundOption& option, Bytes order) {
  DebugPrint("Found %S in NVRAM... ", option.Name);
  UINTN index = 0;
  if (FindInOrder(order, option.Number, index)) {
    DebugPrint("And in the order at index %d.\n", index);
    return;
  }
  DebugPrint("But not in the boot order, deleting.\n");
  static_cast<void>(DeleteVariable(option.Name, gEfiGlobalVariableGuid));
}

}  // namespace

void RemoveBootxxxx() {
  DebugPrint("RemoveBootxxxx\n");
  auto* collation = LocateProtocol<EFI_UNICODE_COLLATION_PROTOCOL>();
  PoolBuffer order;
  if (collation == nullptr || EFI_ERROR(ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order))) {
    return;
  }
  if (gBootOptions.OrderNotSaved) {
    DebugPrint("%a:BootOrder is not that of this boot, nothing is deleted\n", "RemoveBootxxxx");
    return;
  }
  FoundOptions found;
  CollectBootOptions(*collation, found);
  while (found.First != nullptr) {
    DeleteWhenUnlisted(*found.First, order.Bytes());
    Remove(found, found.First);
  }
}

}  // namespace bds
