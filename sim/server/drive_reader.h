// Drives and their media as tables describe them, and lists of devices that may be absent.
#pragma once

#include <filesystem>
#include <vector>

#include "sim/bus/device_tree.h"
#include "sim/server/table_reader.h"

namespace sim {

class DriveReader {
 public:
  // Paths in the tables are relative to the folder.
  explicit DriveReader(std::filesystem::path folder) : folder_(std::move(folder)) {}

  Medium ReadMedium(TableReader& table, std::uint32_t blockSize) const;
  Drive ReadDrive(TableReader& table, bool removableByDefault) const;
  // A file that the key names, which has to exist; empty when the key is absent.
  std::filesystem::path ReadFile(TableReader& table, const char* key) const;

 private:
  std::filesystem::path folder_;
};

// One device for each table under the key: `read` gets the table and the device, of which `present` is already read.
template <typename Device, typename Read>
std::vector<Device> ReadDevices(TableReader& table, const char* key, Read read) {
  std::vector<Device> devices;
  for (TableReader& element : table.Tables(key)) {
    Device device;
    device.present = element.Boolean("present", true);
    read(element, device);
    element.Finish();
    devices.push_back(std::move(device));
  }
  return devices;
}

}  // namespace sim
