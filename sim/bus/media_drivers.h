// The drivers above the bus drivers: USB mass storage, network boot, partitions and file systems.
#pragma once

#include "sim/bus/bus_driver.h"

namespace sim {

// Block I/O for mass storage behind USB I/O: LUN 0 on the device's handle, further units on children.
[[nodiscard]] std::unique_ptr<BusDriver> MakeUsbMassStorageDriver(Machine& machine);
// Children with load file for the address families that a network port boots over.
[[nodiscard]] std::unique_ptr<BusDriver> MakeNetworkBootDriver(Machine& machine);
// Children for the partitions of whole media; EFI system partitions carry their type GUID as a mark.
[[nodiscard]] std::unique_ptr<BusDriver> MakePartitionDriver(Machine& machine);
// The simple file system of FAT volumes, on the handle of their block I/O. ISO 9660 volumes are left alone, as by
// firmware (UEFI 2.10, 13.3): of a disc only the EFI boot image is a volume.
[[nodiscard]] std::unique_ptr<BusDriver> MakeFatDriver(Machine& machine);

}  // namespace sim
