// The controllers whose addresses were read from their own EEPROM or NVM: filled by one pass of the step, read by the
// other.
#pragma once

#include "inventory/adapter_table.h"
#include "support/pool.h"

namespace bds {

class ADAPTER_INVENTORY {
 public:
  ADAPTER_INVENTORY() = default;
  ADAPTER_INVENTORY(const ADAPTER_INVENTORY&) = delete;
  ADAPTER_INVENTORY& operator=(const ADAPTER_INVENTORY&) = delete;
  ~ADAPTER_INVENTORY() {
    for (const ADAPTER_RECORD& record : *this) {
      PoolPtr<const CHAR16>(record.CardName).reset();
    }
  }

  // Makes room for that many records, once. False: the pool is exhausted.
  [[nodiscard]] bool Reserve(UINTN records) {
    records_ = AllocateArray<ADAPTER_RECORD>(records);
    capacity_ = records_ ? records : 0;
    return static_cast<bool>(records_);
  }
  // Takes the record and its CardName. False, and nothing taken: there is no room.
  [[nodiscard]] bool Add(const ADAPTER_RECORD& record) {
    if (gTotalEEPROMDevices == capacity_) {
      return false;
    }
    records_[gTotalEEPROMDevices++] = record;
    return true;
  }

  const ADAPTER_RECORD* begin() const { return records_.get(); }
  const ADAPTER_RECORD* end() const { return records_.get() + gTotalEEPROMDevices; }

  UINTN gTotalEEPROMDevices = 0;  // records; written by Add

 private:
  PoolPtr<ADAPTER_RECORD> records_;
  UINTN capacity_ = 0;
};

}  // namespace bds
