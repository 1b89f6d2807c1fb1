// Tables that the firmware sends to the BMC.
#pragma once

#include "support/byte_reader.h"
#include "support/pool.h"

namespace bds {

// The table that stands in for the order while a boot policy is in force.
[[nodiscard]] Bytes DefaultBootOrderTable();

// Builds the table of BootOptionList, which it sorts by priority, and of the variable LegacyDevOrder; BBS entries get
// their options' priorities. EFI_OUT_OF_RESOURCES when the pool is exhausted, or when the table would be longer than
// its Length can say; the status of reading what it is built from, unless that is not there.
[[nodiscard]] EFI_STATUS CreateSmBotData(PoolBuffer& table);

}  // namespace bds
