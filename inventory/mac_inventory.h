// The step that records which addresses the server's network ports have and where the ports sit, and its two passes.
#pragma once

#include "inventory/adapter_inventory.h"

namespace bds {

// The step: both passes; the second one runs whatever became of the first.
void MACAddressInfoInitialize();

// Fills the inventory with the controllers whose EEPROM or NVM told an address; each one's memory decoding is as it was
// when the pass is over. An error when there are no PCI functions or the pool is exhausted; devices that fail are
// logged and left out.
[[nodiscard]] EFI_STATUS GET_MAC_ADDRESS_FROM_EEPROM(ADAPTER_INVENTORY& inventory);

// Adds the ports that network drivers publish, makes the database of both, and gives it to the BMC and to NVRAM. An
// error when the platform does not tell of its slots or the pool is exhausted.
[[nodiscard]] EFI_STATUS GET_MAC_ADDRESS_FROM_NII_PROTOCOL(const ADAPTER_INVENTORY& inventory);

}  // namespace bds
