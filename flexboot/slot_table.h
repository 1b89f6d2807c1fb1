// The slots of the server, as the board has them.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// A slot and the root port that it hangs on.
struct SLOT_TABLE_ENTRY {
  const char* Name;
  UINT8 Bus;
  UINT8 Device;
  UINT8 Function;
};

// Slot n is entry n - 1; an entry without a name ends the table.
inline constexpr SLOT_TABLE_ENTRY kSlotTable[] = {
    {"SlotID:1", 0x00, 0x03, 0},
    {"SlotID:2", 0x80, 0x02, 0},
    {"SlotID:MLOM", 0x00, 0x02, 0},
    {"SlotID:HBA", 0x00, 0x02, 2},
    {"SlotID:FrontPCIe1", 0x80, 0x02, 2},
    {"SlotID:FrontPCIe2", 0x80, 0x02, 3},
    {nullptr, 0, 0, 0},
};

// The number of slots.
[[nodiscard]] UINTN SlotTableLength();

// The number of processor sockets; false without the platform's memory block.
[[nodiscard]] bool ReadSocketCount(UINT8& sockets);

}  // namespace bds
