#include "inventory/adapter_table.h"

namespace bds {

bool FindSupportedAdapter(const ADAPTER_IDS& ids, UINTN& row) {
  for (row = 0; EEPROMSupported_AdapterTable[row].VendorId != kEndOfAdapterTable; ++row) {
    const ADAPTER_RECORD& adapter = EEPROMSupported_AdapterTable[row];
    if (adapter.VendorId == ids.VendorId && adapter.DeviceId == ids.DeviceId &&
        adapter.SubsystemVendorId == ids.SubsystemVendorId &&
        (adapter.SubsystemId == ids.SubsystemId || adapter.SubsystemId == 0)) {
      return true;
    }
  }
  return false;
}

}  // namespace bds
