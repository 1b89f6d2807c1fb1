#include "inventory/interface_records.h"

#include "support/format.h"
#include "support/memory.h"

namespace bds {

void WriteMacText(std::span<const UINT8, 6> mac, MAC_DATABASE_INTERFACE& record) {
  FormatAscii(record.MacAddress, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

EFI_STATUS INTERFACE_RECORDS::Reserve(UINTN records) {
  records_ = AllocateArray<MAC_DATABASE_INTERFACE>(records);
  capacity_ = records_ ? records : 0;
  return records_ ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

MAC_DATABASE_INTERFACE* INTERFACE_RECORDS::Add(UINT16 interfaceId, UINT16 slotId, std::span<const UINT8, 6> mac) {
  if (count_ == capacity_) {
    return nullptr;
  }
  MAC_DATABASE_INTERFACE& record = records_[count_++];
  ZeroMemory(&record, sizeof(record));
  record.InterfaceId = interfaceId;
  record.SlotId = slotId;
  WriteMacText(mac, record);
  return &record;
}

}  // namespace bds
