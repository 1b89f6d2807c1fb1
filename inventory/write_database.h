// Makes the database of what the passes found.
#pragma once

#include "inventory/interface_records.h"

namespace bds {

// Builds the database from the slots and the records, writes it to the BMC and stores it as a variable; what either of
// them refuses is logged. `devices`: controllers in the inventory. EFI_OUT_OF_RESOURCES: the pool is exhausted.
[[nodiscard]] EFI_STATUS WriteMacDatabase(SlotEntries slots, const INTERFACE_RECORDS& records, UINTN devices);

}  // namespace bds
