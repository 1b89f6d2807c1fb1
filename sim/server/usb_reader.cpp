#include "sim/server/usb_reader.h"

#include <array>

namespace sim {
namespace {

// Drives by their logical unit numbers; a number between them that no table has is a unit that is not there.
void ReadUnits(TableReader& table, const DriveReader& drives, UsbDevice& device) {
  constexpr std::size_t kUnits = 16;
  device.unitNode = static_cast<UsbUnitNode>(table.Word("unit_node", {"unit", "scsi"}, 0));
  device.manufacturer = table.Text("vendor");
  device.product = table.Text("model");
  device.serial = table.Text("serial");
  for (TableReader& element : table.Tables("unit")) {
    const std::size_t number = element.RequiredInteger("number", 0, kUnits - 1);
    const bool present = element.Boolean("present", true);
    Drive drive = drives.ReadDrive(element, true);
    drive.attached = present;
    element.Finish();
    while (device.units.size() <= number) {
      device.units.emplace_back().attached = false;
    }
    if (device.units[number].attached) {
      element.Fail("number", "a number that no other unit of the device has");
    }
    device.units[number] = std::move(drive);
  }
}

}  // namespace

std::vector<UsbDevice> ReadUsbDevices(TableReader& table, const DriveReader& drives) {
  return ReadDevices<UsbDevice>(table, "usb", [&drives](TableReader& element, UsbDevice& device) {
    device.kind = static_cast<UsbKind>(element.Word("kind", {"hub", "keyboard", "mouse", "storage"}, 3));
    device.port = static_cast<std::uint8_t>(element.RequiredInteger("port", 0, 254));
    device.interfaceNumber = static_cast<std::uint8_t>(element.Integer("interface", 0, 0, 255));
    device.vendorId = static_cast<std::uint16_t>(element.Integer("vendor_id", device.vendorId, 0, 0xFFFF));
    device.productId = static_cast<std::uint16_t>(element.Integer("product_id", device.productId, 0, 0xFFFF));
    if (device.kind == UsbKind::Hub) {
      device.devices = ReadUsbDevices(element, drives);
      return;
    }
    if (device.kind != UsbKind::MassStorage) {
      return;
    }
    constexpr std::array kTransports{UsbTransport::BulkOnly, UsbTransport::CbiInterrupt, UsbTransport::Cbi};
    device.transport = kTransports[element.Word("transport", {"bulk-only", "cbi-interrupt", "cbi"}, 0)];
    if (element.Has("unit")) {
      ReadUnits(element, drives, device);
      return;
    }
    Drive drive = drives.ReadDrive(element, true);
    device.serial = drive.serial;
    device.product = drive.model;
    device.manufacturer = drive.vendor;
    device.units.push_back(std::move(drive));
  });
}

}  // namespace sim
