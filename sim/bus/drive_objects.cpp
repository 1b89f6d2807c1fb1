// A folder of the host needs no partition and no file system driver: its volume is on the drive itself.
#include "sim/bus/drive_objects.h"

#include "sim/bus/block_device.h"
#include "sim/bus/file_volume.h"

namespace sim {

std::vector<std::shared_ptr<DeviceObject>> MakeDriveObjects(const Drive& drive) {
  std::vector<std::shared_ptr<DeviceObject>> objects{std::make_shared<BlockDevice>(drive)};
  if (drive.medium.blocks != nullptr || drive.medium.folder.empty()) return objects;
  const auto open = [folder = drive.medium.folder, label = drive.medium.label](auto& reader) {
    return OpenHostFolder(folder, label, reader);
  };
  objects.push_back(std::make_shared<FileVolume>(open));
  return objects;
}

}  // namespace sim
