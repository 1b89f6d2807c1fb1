// The order of the groups as the BMC wants it: from its boot order table, or from the current BootOrder.
#pragma once

#include "bootopt/groups.h"

namespace bds {

// Group ids in priority order; places that are not filled hold kNoGroup.
struct BMC_PRIORITY_LIST {
  UINT32 Ids[kGroupOrderPlaces];
  UINT32 Count = 0;  // places filled

  BMC_PRIORITY_LIST();
  // Nothing when the list is full.
  void Append(UINT32 id);
  bool Has(UINT32 id) const;
};

// What a group's devices are in the BBS table.
inline constexpr UINT16 kBbsTypeUefi = 0x10;
inline constexpr UINT16 kBbsTypeNone = 0xFF;
[[nodiscard]] UINT16 BbsTypeOfGroup(UINT32 groupId);

// Strict: the BMC's groups replace the order. Loose: they are only moved to the front.
[[nodiscard]] bool IsStrictGroupOrder();

// While the BMC's table was not changed the list comes from BootOrder, else from the table. EFI_NOT_FOUND without a
// good table, and when the list would be empty.
[[nodiscard]] EFI_STATUS GetBootPrioritiesFromBmc(BMC_PRIORITY_LIST& list);
// False without a BootOrder. The list is empty when BootOrder, or an option that it names, is there but cannot be read.
[[nodiscard]] bool BuildPriorityListFromBootxxxx(BMC_PRIORITY_LIST& list);

}  // namespace bds
