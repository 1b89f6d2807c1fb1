#include "inventory/mac_inventory.h"

#include "support/debug_print.h"

namespace bds {

void MACAddressInfoInitialize() {
  ADAPTER_INVENTORY inventory;
  EFI_STATUS status = GET_MAC_ADDRESS_FROM_EEPROM(inventory);
  if (EFI_ERROR(status)) {
    DebugPrint("GET_MAC_ADDRESS_FROM_EEPROM API failed! Status = %r\n", status);
  }
  status = GET_MAC_ADDRESS_FROM_NII_PROTOCOL(inventory);
  if (EFI_ERROR(status)) {
    DebugPrint("GET_MAC_ADDRESS_FROM_NII_PROTOCOL API failed! Status = %r\n", status);
  }
}

}  // namespace bds
