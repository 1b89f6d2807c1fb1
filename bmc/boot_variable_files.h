// The copies of BootOrder and the Boot#### variables on the BMC, as the step that saves them and the one that restores
// them see them: one file each, of the variable's name and with its bytes.
#pragma once

#include "bmc/bt_read_file.h"
#include "support/byte_reader.h"
#include "support/number_set.h"

namespace bds {

inline constexpr char kOrderFile[] = "BootOrder";
inline constexpr CHAR16 kOrderVariable[] = u"BootOrder";

struct OptionFileName {
  char Text[12];
};
[[nodiscard]] OptionFileName BootOptionFileName(UINT16 number);

// True when Setup asks for UEFI boot mode: there are copies in that mode only. Logs the step's title then. When Setup
// cannot be read, the copies are as good as not restored, and not replaced on this boot.
[[nodiscard]] bool BeginCopyStep(const char* title);

// Reads a file of the BMC, a second time when the first said nothing about it; a BMC that is twice silent has had its
// tries. file holds the bytes of one that is present.
[[nodiscard]] BmcFile ReadCopy(const char* name, PoolBuffer& file);
// The same for the order, where a file without a whole number is as good as none.
[[nodiscard]] BmcFile ReadOrderCopy(PoolBuffer& order);

// Calls routine(number) once for every number of an order; half a number at its end is none.
template <typename Routine>
void ForEachNumber(Bytes order, Routine routine) {
  NumberSet seen;
  ByteReader reader(order);
  for (UINT16 number = 0; reader.Read(number);) {
    if (!seen || seen.Insert(number)) {
      routine(number);
    }
  }
}

}  // namespace bds
