// The interface records of the database while it is made, and how many interfaces each slot was seen to have.
#pragma once

#include <span>

#include "inventory/mac_database.h"
#include "inventory/slot_adapters.h"
#include "support/pool.h"

namespace bds {

// The text of six bytes in a record.
void WriteMacText(std::span<const UINT8, 6> mac, MAC_DATABASE_INTERFACE& record);

class INTERFACE_RECORDS {
 public:
  // Makes room for that many records, once. EFI_OUT_OF_RESOURCES: the pool is exhausted.
  [[nodiscard]] EFI_STATUS Reserve(UINTN records);
  // The new record, zero but for what is given; null when there is no room.
  MAC_DATABASE_INTERFACE* Add(UINT16 interfaceId, UINT16 slotId, std::span<const UINT8, 6> mac);

  [[nodiscard]] UINTN Count() const { return count_; }
  [[nodiscard]] std::span<const MAC_DATABASE_INTERFACE> All() const { return {records_.get(), count_}; }

  UINT16 SlotInterfaces[kMaxInventorySlots] = {};  // by the slot's place: ports that network drivers publish
  UINTN FromDrivers = 0;                           // records of such ports; they come first
  UINT16 FromBoard = 0;                            // records of the board's own ports; they come last

 private:
  PoolPtr<MAC_DATABASE_INTERFACE> records_;
  UINTN capacity_ = 0;
  UINTN count_ = 0;
};

}  // namespace bds
