// The [[usb]] tables of a USB host controller or a hub.
#pragma once

#include "sim/server/drive_reader.h"

namespace sim {

std::vector<UsbDevice> ReadUsbDevices(TableReader& table, const DriveReader& drives);

}  // namespace sim
