#include "sim/server/drive_reader.h"

#include "sim/storage/disk_image.h"

namespace sim {

Medium DriveReader::ReadMedium(TableReader& table, std::uint32_t blockSize) const {
  Medium medium;
  const std::string image = table.Text("image");
  const std::string folder = table.Text("folder");
  medium.label = table.Text("label");
  DiskImageOptions options;
  options.blockSize = static_cast<std::uint32_t>(table.Integer("block_size", blockSize, 512, 4096));
  options.claimedSize = table.Integer("claimed_size", 0, 0, INT64_MAX);
  if (!image.empty() && !folder.empty()) {
    table.Fail("folder", "either an image or a folder, not both");
  }
  if (!image.empty()) {
    std::string error;
    if (std::filesystem::is_directory(folder_ / image)) {
      table.Fail("image", "a disk image, but this is a folder; the key 'folder' shows one as a volume");
    }
    medium.blocks = OpenDiskImage(folder_ / image, options, error);
    if (medium.blocks == nullptr) {
      table.Fail("image", "a readable disk image: " + error);
    }
  }
  if (!folder.empty()) {
    medium.folder = folder_ / folder;
    if (!std::filesystem::is_directory(medium.folder)) {
      table.Fail("folder", "an existing folder");
    }
  }
  return medium;
}

Drive DriveReader::ReadDrive(TableReader& table, bool removableByDefault) const {
  Drive drive;
  drive.kind = static_cast<DriveKind>(table.Word("drive", {"disk", "cdrom", "floppy"}, 0));
  drive.removable = table.Boolean("removable", removableByDefault || drive.kind != DriveKind::Disk);
  drive.vendor = table.Text("vendor", drive.vendor);
  drive.model = table.Text("model", drive.model);
  drive.revision = table.Text("revision", drive.revision);
  drive.serial = table.Text("serial");
  drive.medium = ReadMedium(table, drive.kind == DriveKind::CdRom ? 2048 : 512);
  return drive;
}

std::filesystem::path DriveReader::ReadFile(TableReader& table, const char* key) const {
  const std::string name = table.Text(key);
  if (name.empty()) {
    return {};
  }
  if (!std::filesystem::is_regular_file(folder_ / name)) {
    table.Fail(key, "an existing file");
  }
  return folder_ / name;
}

}  // namespace sim
